// GeometryProperty: values that a renderer reads at fragments of a geometry.
#pragma once

#include "qn_geometry/geometry_fragment.h"
#include "qn_gmath/gmath_time_sampling.h"
#include "qn_resource/resource_data.h"
#include "qn_resource/resource_property.h"

class CtxEval;

// Evaluation goes through a pair of callbacks, one that writes integers and one that writes reals. Both write the
// values at the fragment and, where asked for, three arrays of derivatives (along u, along v, and a third); a null
// output is skipped. They return the number of values written to each output, at most `max_count`. Evaluation is safe
// from any number of threads once the property is set up.
class QN_EXPORT GeometryProperty : public ResourceData {
public:
    template <class Value>
    using Callback = unsigned int (*)(const GeometryProperty& property, const CtxEval& ctx,
                                      const GeometryFragment& fragment, const unsigned int& sample, Value* values,
                                      Value* derivatives_u, Value* derivatives_v, Value* derivatives_w,
                                      const unsigned int& max_count);
    using IntegerCallback = Callback<long long>;
    using RealCallback = Callback<double>;

    // `index_count` and `value_count` are what the virtual getters answer unless a derived class knows better.
    GeometryProperty(const CoreString& name, const GMathTimeSampling& sampling,
                     const ResourceProperty::Type& value_type, const unsigned int& value_extent,
                     const unsigned int& index_count, const unsigned int& value_count);

    const CoreClassInfo& get_class_info() const override;
    static const CoreClassInfo& class_info();
    size_t get_memory_size() const override { return sizeof(*this); }

    const GMathTimeSampling& get_time_sampling() const { return m_sampling; }
    const ResourceProperty::Type& get_value_type() const { return m_value_type; }
    const unsigned int& get_value_extent() const { return m_value_extent; }
    virtual const unsigned int& get_index_count() const { return m_index_count; }
    virtual const unsigned int& get_value_count() const { return m_value_count; }

    // Null callbacks evaluate to nothing.
    void set_evaluate_callbacks(IntegerCallback integer_callback, RealCallback real_callback) {
        m_integer_callback = integer_callback;
        m_real_callback = real_callback;
    }
    bool has_callbacks() const { return m_integer_callback != nullptr && m_real_callback != nullptr; }

    unsigned int evaluate(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& sample,
                          long long* values, long long* derivatives_u, long long* derivatives_v,
                          long long* derivatives_w, const unsigned int& max_count) const {
        return m_integer_callback == nullptr ? 0
                                             : m_integer_callback(*this, ctx, fragment, sample, values, derivatives_u,
                                                                  derivatives_v, derivatives_w, max_count);
    }
    unsigned int evaluate(const CtxEval& ctx, const GeometryFragment& fragment, const unsigned int& sample,
                          double* values, double* derivatives_u, double* derivatives_v, double* derivatives_w,
                          const unsigned int& max_count) const {
        return m_real_callback == nullptr ? 0
                                          : m_real_callback(*this, ctx, fragment, sample, values, derivatives_u,
                                                            derivatives_v, derivatives_w, max_count);
    }

private:
    GMathTimeSampling m_sampling;
    ResourceProperty::Type m_value_type;
    unsigned int m_value_extent;
    unsigned int m_index_count;
    unsigned int m_value_count;
    IntegerCallback m_integer_callback = nullptr;
    RealCallback m_real_callback = nullptr;
};
