# Sourced with the array `packages` set: installs those of them that are missing. Says what it installs; with nothing to
# do it is silent and quick. `name:arch` is a package of another architecture.
caller=$(basename "$0" .sh)

if ! command -v dpkg-query >/dev/null; then
    echo "$caller: not a Debian system; what it would install: ${packages[*]}" >&2
    exit 0
fi

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "$caller: neither root nor sudo; as root, run: $*" >&2
        exit 1
    fi
}

native=$(dpkg --print-architecture)
installed=$(dpkg-query -W -f='${Package}:${Architecture} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null |
    awk '$2 == "installed" { sub(/:all$/, "", $1); print $1 }' || true)
missing=()
for package in "${packages[@]}"; do
    grep -qxe "$package" -e "$package:$native" <<<"$installed" || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "$caller: installing ${missing[*]}"
for package in "${missing[@]}"; do
    architecture=${package#*:}
    if [ "$architecture" != "$package" ] && ! dpkg --print-foreign-architectures | grep -qx "$architecture"; then
        as_root dpkg --add-architecture "$architecture"
    fi
done
as_root apt-get update -qq </dev/null
as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
