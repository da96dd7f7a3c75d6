/** How the surface is shaded: one material, a view at a time. */
import { Color, DoubleSide, GLSL3, ShaderMaterial } from 'three';

/** The views in the order of their keys. @type {{id: string, title: string}[]} */
export const views = [
  { id: 'surface', title: 'Surface' },
  { id: 'class', title: 'Patches by class' },
  { id: 'level', title: 'Patches by level' },
  { id: 'normals', title: 'Normals' },
  { id: 'uv', title: 'UV checker' },
  { id: 'reflection', title: 'Reflection lines' },
  { id: 'curvature', title: 'Curvature' },
];

/** Colors of the patch classes and levels; level -1 comes first. */
export const classColors = ['#7d9bb8', '#d9b26a', '#c4654a'];
export const classNames = ['regular', 'boundary', 'irregular'];
export const levelColors = ['#8fa3b5', '#7d9bb8', '#7fb09a', '#b3b765', '#d9a25c', '#cf7a4e', '#bb5560', '#955b8f'];

const vertexShader = /* glsl */ `
  in vec2 st;
  in vec2 map;
  in vec2 curvature;
  in vec2 patchInfo;

  out vec3 seenNormal;
  out vec3 worldNormal;
  out vec3 seenPosition;
  out vec2 onQuad;
  out vec2 onMap;
  out vec2 bend;
  flat out vec2 cell;

  void main() {
    vec4 seen = modelViewMatrix * vec4(position, 1.0);
    seenPosition = seen.xyz;
    seenNormal = normalMatrix * normal;
    worldNormal = normal;
    onQuad = st;
    onMap = map;
    bend = curvature;
    cell = patchInfo;
    gl_Position = projectionMatrix * seen;
  }
`;

const fragmentShader = /* glsl */ `
  precision highp float;

  uniform int view;
  uniform bool isFlat;
  uniform bool hasBorders;
  uniform bool isGaussian;
  uniform float bendScale;
  uniform vec3 clay;
  uniform vec3 borderColor;
  uniform vec3 classColors[3];
  uniform vec3 levelColors[8];

  in vec3 seenNormal;
  in vec3 worldNormal;
  in vec3 seenPosition;
  in vec2 onQuad;
  in vec2 onMap;
  in vec2 bend;
  flat in vec2 cell;

  out vec4 color;

  /* Light of a sky, a key and a rim, fixed to the eye. */
  vec3 lit(vec3 albedo, vec3 n, vec3 toEye) {
    float sky = 0.34 + 0.16 * n.y;
    float key = 0.62 * max(dot(n, normalize(vec3(-0.45, 0.65, 0.62))), 0.0);
    float rim = 0.16 * pow(1.0 - max(dot(n, toEye), 0.0), 3.0);
    vec3 linear = pow(albedo, vec3(2.2)) * (sky + key) * 1.25 + rim * 0.5;
    return pow(linear, vec3(1.0 / 2.2));
  }

  /* A checker that fades to its mean where squares are smaller than pixels. */
  float checker(vec2 p) {
    vec2 width = max(fwidth(p), 1e-6);
    vec2 wave = 2.0 * (abs(fract((p - 0.5 * width) * 0.5) - 0.5) - abs(fract((p + 0.5 * width) * 0.5) - 0.5)) / width;
    return 0.5 - 0.5 * wave.x * wave.y;
  }

  vec3 diverging(float x) {
    vec3 low = vec3(0.18, 0.38, 0.68), middle = vec3(0.92, 0.91, 0.89), high = vec3(0.74, 0.29, 0.17);
    float t = clamp(abs(x), 0.0, 1.0);
    return mix(middle, x < 0.0 ? low : high, sqrt(t));
  }

  /* How much of a pixel the borders of the patches cover. A patch of level -1 goes on behind sides u = 1 and v = 1. */
  float borderCover(float level) {
    vec2 p = onQuad * exp2(max(level, 0.0));
    vec2 width = max(fwidth(p), 1e-6);
    vec2 away = level < 0.0 ? p : abs(fract(p + 0.5) - 0.5);
    vec2 cover = 1.0 - smoothstep(0.25 * width, 1.1 * width, away);
    return max(cover.x, cover.y);
  }

  void main() {
    vec3 toEye = normalize(-seenPosition);
    vec3 n = isFlat ? normalize(cross(dFdx(seenPosition), dFdy(seenPosition))) : normalize(seenNormal);
    bool isBack = !gl_FrontFacing;
    if (isBack && !isFlat) n = -n;
    if (isFlat && dot(n, toEye) < 0.0) n = -n;

    float level = cell.y - 1.0;
    vec3 albedo = clay;
    bool isShaded = true;
    if (view == 1) albedo = classColors[int(cell.x + 0.5)];
    if (view == 2) albedo = levelColors[clamp(int(cell.y + 0.5), 0, 7)];
    if (view == 3) {
      vec3 shown = isFlat ? n : normalize(worldNormal);
      color = vec4(0.5 + 0.5 * shown, 1.0);
      isShaded = false;
    }
    if (view == 4) albedo = mix(vec3(0.27, 0.32, 0.38), vec3(0.90, 0.87, 0.81), checker(onMap * 16.0));
    if (view == 5) {
      vec3 r = reflect(-toEye, n);
      float stripe = atan(r.x, r.y + 1e-9) * 9.0;
      float width = max(fwidth(stripe), 1e-4);
      float wave = abs(fract(stripe / 3.14159265) - 0.5) * 2.0;
      float dark = smoothstep(0.5 - 0.6 * width, 0.5 + 0.6 * width, wave);
      float fade = clamp(1.6 - width, 0.0, 1.0);
      color = vec4(mix(vec3(0.5), mix(vec3(0.95), vec3(0.10, 0.12, 0.14), dark), fade) * (0.86 + 0.14 * n.z), 1.0);
      isShaded = false;
    }
    if (view == 6) albedo = diverging((isGaussian ? bend.y : bend.x) * bendScale);
    if (isShaded) color = vec4(lit(albedo, n, toEye) * (isBack ? 0.62 : 1.0), 1.0);
    if (hasBorders) color.rgb = mix(color.rgb, borderColor, 0.75 * borderCover(level));
  }
`;

const plain = (hex) => {
  const { r, g, b } = new Color().setStyle(hex, '');
  return new Color(r, g, b);
};

/** Colors are those of the screen: nothing converts them. */
export function makeSurfaceMaterial() {
  return new ShaderMaterial({
    glslVersion: GLSL3,
    side: DoubleSide,
    polygonOffset: true,
    polygonOffsetFactor: 1,
    polygonOffsetUnits: 1,
    vertexShader,
    fragmentShader,
    uniforms: {
      view: { value: 0 },
      isFlat: { value: false },
      hasBorders: { value: false },
      isGaussian: { value: false },
      bendScale: { value: 1 },
      clay: { value: plain('#b98a6a') },
      borderColor: { value: plain('#20242a') },
      classColors: { value: classColors.map(plain) },
      levelColors: { value: levelColors.map(plain) },
    },
  });
}

export { plain as screenColor };
