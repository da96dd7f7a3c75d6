// What a renderer and a surface say to each other: objects, rays, samples, maps, properties.
#pragma once

#include <cstdint>
#include <memory>

#include "host/system.h"

struct GeometryFragment {
    unsigned int primitive = 0;
    double u = 0.0, v = 0.0, time = 0.0, time_interval = 0.0;
};

struct GeometryPlace {
    unsigned int face = 0;
    double u = 0.0, v = 0.0;
    unsigned int turns = 0;
    double derivative_scale = 1.0;

    template <class Vector>
    void turn_to_face(Vector& du, Vector& dv) const {
        turn(turns & 3u, derivative_scale, du, dv);
    }
    template <class Vector>
    void turn_to_primitive(Vector& du, Vector& dv) const {
        turn((4u - turns) & 3u, 1.0 / derivative_scale, du, dv);
    }

private:
    template <class Vector>
    static void turn(unsigned int count, double scale, Vector& du, Vector& dv) {
        for (unsigned int i = 0; i < count; ++i) {
            const Vector former = du;
            du = dv;
            dv = former * -1.0;
        }
        du = du * scale;
        dv = dv * scale;
    }
};

class GeometrySample {
public:
    using Vec = GMathVec3<double>;

    void set_fallback_normal(const Vec& normal) { m_fallback = normal; }
    void init_surface(const Vec& position, const Vec& dpdu, const Vec& dpdv, const Vec&, const Vec&, const Vec&) {
        m_position = position;
        const Vec n = dpdu.cross(dpdv);
        m_normal = m_smoothing_normal = n.length_squared() > 0.0 ? n * (1.0 / n.length()) : m_fallback;
    }
    void set_smoothing(const Vec&, const Vec& normal, const Vec&, const Vec&) { m_smoothing_normal = normal; }
    void set_geometric_position_dt(const Vec& velocity) { m_velocity = velocity; }

    const Vec& get_geometric_position() const { return m_position; }
    const Vec& get_geometric_normal() const { return m_normal; }
    // This host does not bend normals within a pixel.
    const Vec& get_geometric_dndu() const { return m_zero; }
    const Vec& get_geometric_dndv() const { return m_zero; }
    const Vec& get_smoothing_normal() const { return m_smoothing_normal; }
    const Vec& get_smoothing_dndu() const { return m_zero; }
    const Vec& get_smoothing_dndv() const { return m_zero; }

private:
    Vec m_position{}, m_normal{}, m_smoothing_normal{}, m_velocity{}, m_fallback{0, 0, 1}, m_zero{};
};

struct GeometryPlane {
    GMathVec3<double> normal{0, 0, 0};
    double offset = 1.0;
    double get_distance(const GMathVec3<double>& p) const { return normal.dot(p) + offset; }
};

struct GeometryFrustum {
    static constexpr unsigned int max_side_count = 4;
    GeometryPlane sides[max_side_count];
    unsigned int side_count = 0;
    GeometryPlane near_plane, far_plane;
};

class GeometryFrustumCtx {
public:
    const int& get_mode() const { return mode; }
    const GeometryFrustum* get_frustum() const { return &frustum; }

    int mode = 0;
    GeometryFrustum frustum;
    unsigned int selected_count = 0;
    unsigned char partial_flag = 0, cull_marker = 1;
    unsigned char* vertex_marks = nullptr;
};

struct GeometryMediumDescriptor {};

struct GeometryOccluder {
    unsigned int primitive, node;
    const void* traversal;
};

struct GeometryRaySpace {
    double shift;
    float origin[3], across[2][3], along[3];
};

enum class GeometryRayMode : unsigned char { closest, any };

struct GeometryRay {
    GMathVec3<double> origin, direction;
    GeometryRayMode mode = GeometryRayMode::closest;
    double tnear = 0.0, tfar = std::numeric_limits<double>::infinity(), time = 0.0;
    unsigned int primitive = 0xFFFFFFFF;  // of the nearest hit so far
    double u = 0.0, v = 0.0;
    GeometryRaySpace space;
};

struct GeometryRaytraceData {
    const void* map = nullptr;
    unsigned int hit_detail = 0;
    unsigned int kernel_family = 0;
};

struct GeometryIntersectionPath {
    double get_distance() const { return std::numeric_limits<double>::infinity(); }
};

// One ray at a time, the nearest hit.
class GeometryRaytraceCtx {
public:
    explicit GeometryRaytraceCtx(GeometryRay& ray) : m_ray(&ray) {}
    unsigned int get_first_ray() const { return 0; }
    unsigned int get_last_ray() const { return 0; }
    const GeometryRay& get_ray(unsigned int) const { return *m_ray; }
    const double& get_tnear(unsigned int) const { return m_ray->tnear; }
    const double& get_tfar(unsigned int) const { return m_ray->tfar; }
    const double& get_time() const { return m_ray->time; }
    bool is_ray_finished(unsigned int) const { return false; }
    bool has_motion_blur() const { return false; }
    const GeometryRaytraceData& get_data() const { return m_data; }
    GeometryIntersectionPath& get_intersection_path(unsigned int) { return m_path; }
    unsigned int get_start_node() const { return 0; }
    void set_start_node(unsigned int) {}
    const GMathVec3<double>& get_reference_point() const { return m_reference; }
    void set_reference_point(const GMathVec3<double>& point) { m_reference = point; }
    double get_reference_shift(unsigned int) const;
    const GeometryRaySpace& get_ray_space(unsigned int);
    bool push_intersection(const CtxEval&, unsigned int ray, unsigned int primitive, double u, double v, double w,
                           unsigned int sub_element, double du, double dv, double dw, double t, double separation,
                           const GeometryMediumDescriptor&, const void* custom);
    void set_occluder(unsigned int, const GeometryOccluder&) {}

private:
    GeometryRay* m_ray;
    GeometryRaytraceData m_data;
    GeometryIntersectionPath m_path;
    GMathVec3<double> m_reference{};
};

// This host asks for none.
class GeometryRayIndex {
public:
    virtual ~GeometryRayIndex() = default;
    virtual void intersect(const CtxEval&, GeometryRaytraceCtx&) const = 0;
    virtual size_t get_memory_size() const = 0;
};

struct GeometryUvMap {
    CoreString name;
    CoreArray<GMathVec3<float>> vertices;
    CoreArray<unsigned int> indices;
};

struct GeometryColorMap {
    CoreString name;
    CoreArray<GMathVec4<unsigned char>> colors;
    CoreArray<unsigned int> indices;
};

// Positions blended from a few arrays.
class GeometryPositionArray {
public:
    GeometryPositionArray(unsigned int count, unsigned int sources, const GMathVec3<float>* const* arrays,
                          const float* weights)
        : m_count(count), m_arrays(arrays, arrays + sources), m_weights(weights, weights + sources) {}
    unsigned int get_count() const { return m_count; }
    GMathVec3<float> operator[](unsigned int i) const {
        GMathVec3<float> sum{};
        for (size_t s = 0; s < m_arrays.size(); ++s) sum += m_arrays[s][i] * m_weights[s];
        return sum;
    }

private:
    unsigned int m_count;
    std::vector<const GMathVec3<float>*> m_arrays;
    std::vector<float> m_weights;
};

// Points and velocities. Samples of this host are loaded when they are installed.
class GeometryPointCloud {
public:
    struct SampleLoader {
        virtual ~SampleLoader() = default;
        virtual void load(const GMathTimeSampling& sampling, const unsigned int& sample, GMathVec3<float>* out) = 0;
    };

    void init(const unsigned int& count, const bool&, const bool& has_velocities, const bool&) {
        m_positions.resize(count);
        m_velocities.resize(has_velocities ? count : 0);
    }
    void init(const unsigned int& count, const GMathVec3<float>* positions, const float*,
              const GMathVec3<float>* velocities) {
        init(count, false, velocities != nullptr, false);
        std::copy_n(positions, count, m_positions.begin());
        if (velocities != nullptr) std::copy_n(velocities, count, m_velocities.begin());
    }
    void init_sampling(const GMathTimeSampling& sampling,
                       const CoreSharedPointer<SampleLoader, CoreSharedCounter>& loader) {
        m_sampling = sampling;
        m_samples.assign(sampling.get_sample_count(), std::vector<GMathVec3<float>>(get_count()));
        for (unsigned int i = 0; i < m_samples.size(); ++i) loader->load(sampling, i, m_samples[i].data());
    }
    unsigned int get_count() const { return m_positions.get_count(); }
    bool is_empty() const { return m_positions.is_empty(); }
    const CoreArray<GMathVec3<float>>& get_positions() const { return m_positions; }
    CoreArray<GMathVec3<float>>& get_positions() { return m_positions; }
    bool has_velocities() const { return !m_velocities.is_empty(); }
    const CoreArray<GMathVec3<float>>& get_velocities() const { return m_velocities; }
    CoreArray<GMathVec3<float>>& get_velocities() { return m_velocities; }
    bool has_sampling() const { return !m_samples.empty(); }
    const GMathTimeSampling& get_sampling() const { return m_sampling; }
    const GMathVec3<float>* get_sample_positions(unsigned int sample) const { return m_samples[sample].data(); }
    size_t get_memory_size() const { return sizeof(*this); }

private:
    CoreArray<GMathVec3<float>> m_positions, m_velocities;
    GMathTimeSampling m_sampling;
    std::vector<std::vector<GMathVec3<float>>> m_samples;
};

// Items of `extent` numbers of one type.
class ResourceProperty : public ResourceData {
public:
    enum class Type : unsigned int {
        int8,
        uint8,
        int16,
        uint16,
        int32,
        uint32,
        int64,
        uint64,
        float16,
        float32,
        float64,
        char8,
        char16
    };

    ResourceProperty() = default;
    explicit ResourceProperty(const CoreString& name) { set_name(name); }
    void init(const Type& type, const unsigned int& extent, const unsigned int& item_count);
    const Type& get_type() const { return m_type; }
    const unsigned int& get_extent() const { return m_extent; }
    const unsigned int& get_item_count() const { return m_item_count; }
    bool has_item_offsets() const { return false; }
    unsigned int get_item_length(unsigned int) const { return m_extent; }
    unsigned int get_min_item_length() const { return m_extent; }
    template <class T>
    const T* get_item_values(unsigned int item) const {
        return reinterpret_cast<const T*>(m_numbers.data()) + size_t{item} * m_extent;
    }
    template <class T>
    void set_item_values(unsigned int item, const T* values, unsigned int count) {
        std::copy_n(values, std::min(count, m_extent),
                    reinterpret_cast<T*>(m_numbers.data()) + size_t{item} * m_extent);
    }

private:
    Type m_type = Type::float32;
    unsigned int m_extent = 0, m_item_count = 0;
    std::vector<std::uint64_t> m_numbers;  // aligned for every type
};

class GeometryProperty : public ResourceData {
public:
    template <class Value>
    using Callback = unsigned int (*)(const GeometryProperty&, const CtxEval&, const GeometryFragment&,
                                      const unsigned int& sample, Value* values, Value* along_u, Value* along_v,
                                      Value* along_w, const unsigned int& max_count);

    using IntegerCallback = Callback<long long>;
    using RealCallback = Callback<double>;

    GeometryProperty(const CoreString& name, const GMathTimeSampling&, const ResourceProperty::Type& value_type,
                     const unsigned int&, const unsigned int& index_count, const unsigned int& value_count)
        : m_value_type(value_type), m_index_count(index_count), m_value_count(value_count) {
        set_name(name);
    }
    static const CoreClassInfo& class_info();
    const ResourceProperty::Type& get_value_type() const { return m_value_type; }
    virtual const unsigned int& get_index_count() const { return m_index_count; }
    virtual const unsigned int& get_value_count() const { return m_value_count; }
    void set_evaluate_callbacks(IntegerCallback, RealCallback evaluate_reals) { evaluate = evaluate_reals; }

    RealCallback evaluate = nullptr;

private:
    ResourceProperty::Type m_value_type;
    unsigned int m_index_count, m_value_count;
};

// The calls that this host's renderer makes.
class GeometryObject : public ResourceData {
public:
    using Vec3d = GMathVec3<double>;
    using Box = GMathBbox3<double>;
    using Index = unsigned int;

    static const CoreClassInfo& class_info();
    virtual Box get_bbox() const = 0;
    virtual Box get_bbox_at(const CtxEval&, const double& time) const = 0;
    virtual const CoreBasicArray<CoreString>& get_shading_group_names() const = 0;
    virtual Box get_shading_group_bbox(const Index& group) const = 0;
    virtual void get_primitive_indices(CoreArray<Index>& out) const = 0;
    virtual bool is_animated() const = 0;
    virtual const GeometryPointCloud* get_point_cloud() const = 0;
    virtual Index get_primitive_count() const = 0;
    virtual Index get_primitive_edge_count(const Index& primitive) const = 0;
    virtual void compute_primitive_bbox(const CtxEval&, const Index& primitive, Box&) const = 0;
    virtual void compute_primitive_bboxes(const CtxEval&, const Index& first, const Index& count, Box*) const = 0;
    virtual void compute_primitive_bbox_at(const CtxEval&, const Index& primitive, const double& time, Box&) const = 0;
    virtual double estimate_area(const CtxEval&, const GMathMatrix4x4<double>&) const = 0;
    virtual double estimate_shading_group_area(const CtxEval&, const Index&, const GMathMatrix4x4<double>&) const = 0;
    virtual double estimate_primitive_area(const CtxEval&, const Index&, const GMathMatrix4x4<double>&) const = 0;
    virtual Index get_primitive_shading_group_index(const Index& primitive) const = 0;
    virtual GeometryPlace get_primitive_place(const Index& primitive, const double& u, const double& v) const = 0;
    virtual Index get_uv_map_count() const = 0;
    virtual CoreString get_uv_map_name(const Index& map) const = 0;
    virtual void compute_fragment_uvw(const CtxEval&, const GeometryFragment&, const Index& map, Vec3d& uvw,
                                      Vec3d& duvw_du, Vec3d& duvw_dv) const = 0;
    virtual void compute_edge_uvw(const CtxEval&, const Index& primitive, const Index& edge, const Index& map,
                                  const double& t, Vec3d& uvw) const = 0;
    virtual Index get_color_map_count() const = 0;
    virtual CoreString get_color_map_name(const Index& map) const = 0;
    virtual void compute_fragment_color(const CtxEval&, const GeometryFragment&, const Index& map,
                                        GMathVec4<float>& color) const = 0;
    virtual bool is_primitive_uv_mapped(const Index& primitive, const Index& map) const = 0;
    virtual bool is_primitive_edge_visible(const Index& primitive, const Index& edge) const = 0;
    virtual void compute_fragment_sample(const CtxEval&, const GeometryFragment&, GeometrySample&) const = 0;
    virtual void compute_edge_sample(const CtxEval&, const Index& primitive, const Index& edge, const double& t,
                                     const bool& reversed, GeometrySample&) const = 0;
    virtual void intersect_primitive(const CtxEval&, const Index& primitive, GeometryFrustumCtx&) const = 0;
    virtual void intersect_primitive(const CtxEval&, const Index& primitive, GeometryRaytraceCtx&) const = 0;
    virtual std::unique_ptr<const GeometryRayIndex> make_ray_index(const CoreBasicArray<Box>& boxes) const = 0;
};
