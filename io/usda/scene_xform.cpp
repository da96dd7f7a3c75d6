#include <cmath>
#include <unordered_map>

#include "io/usda/scene_readers.h"

namespace sds_usda {

namespace {

constexpr std::string_view op_prefix = "xformOp:", invert_prefix = "!invert!", reset_word = "!resetXformStack!";

struct OpKind {
    std::string_view name;
    UsdXformOp::Kind kind;
    std::uint8_t components;
    std::string_view axes;
};

using enum UsdXformOp::Kind;

constexpr OpKind op_kinds[] = {
    {"translate", translate, 3, "XYZ"}, {"translateX", translate, 1, "X"}, {"translateY", translate, 1, "Y"},
    {"translateZ", translate, 1, "Z"},  {"scale", scale, 3, "XYZ"},        {"scaleX", scale, 1, "X"},
    {"scaleY", scale, 1, "Y"},          {"scaleZ", scale, 1, "Z"},         {"rotateX", rotate, 1, "X"},
    {"rotateY", rotate, 1, "Y"},        {"rotateZ", rotate, 1, "Z"},       {"rotateXYZ", rotate, 3, "XYZ"},
    {"rotateXZY", rotate, 3, "XZY"},    {"rotateYXZ", rotate, 3, "YXZ"},   {"rotateYZX", rotate, 3, "YZX"},
    {"rotateZXY", rotate, 3, "ZXY"},    {"rotateZYX", rotate, 3, "ZYX"},   {"orient", orient, 4, ""},
    {"transform", matrix, 16, ""},
};

const OpKind* find_kind(std::string_view name) {
    if (!name.starts_with(op_prefix)) return nullptr;
    name.remove_prefix(op_prefix.size());
    name = name.substr(0, name.find(':'));
    for (const OpKind& kind : op_kinds)
        if (kind.name == name) return &kind;
    return nullptr;
}

/// The value of one attribute, which several ops may share, and what is wrong with it.
struct OpValue {
    std::uint32_t index = 0;
    const char* fault = nullptr;
    std::optional<bool> has_inverse;  ///< found out for the first inverted op
};

class OpReader {
public:
    OpReader(PrimReader& reader, UsdNode& node) : m_reader(reader), m_node(node) {}

    void read();

private:
    void read_op(std::string_view word);
    OpValue& take_value(std::string_view name, const OpKind& kind);
    bool has_inverse(const UsdXformOp& op) const;
    void fail(std::string_view word, const char* why);

    PrimReader& m_reader;
    UsdNode& m_node;
    std::unordered_map<std::string_view, OpValue> m_values;
};

void OpReader::fail(std::string_view word, const char* why) {
    m_reader.findings().record(UsdFindingCode::bad_transform, m_reader.place_of("xformOpOrder"),
                               [&] { return name_in(word, m_reader.prim()) + ": " + why; });
}

OpValue& OpReader::take_value(std::string_view name, const OpKind& kind) {
    const auto [known, is_new] = m_values.try_emplace(name);
    OpValue& value = known->second;
    if (!is_new) return value;
    Timed<double> taken = m_reader.take<double>(name, kind.components, false);
    if (taken.is_empty()) {
        value.fault = "it has no value";
    } else if (!std::all_of(taken.values.begin(), taken.values.end(), [](double v) { return std::isfinite(v); })) {
        value.fault = "NaN or infinite number";
    } else {
        value.index = static_cast<std::uint32_t>(m_node.op_values.size());
        m_node.op_values.push_back(std::move(taken));
    }
    return value;
}

bool OpReader::has_inverse(const UsdXformOp& op) const {
    const Timed<double>& value = m_node.op_values[op.value];
    for (std::size_t s = 0; s < value.get_sample_count(); ++s)
        if (!inverse(op_matrix(op, value.sample(s)))) return false;
    return true;
}

void OpReader::read_op(std::string_view word) {
    std::string_view name = word;
    UsdXformOp op;
    op.is_inverted = name.starts_with(invert_prefix);
    if (op.is_inverted) name.remove_prefix(invert_prefix.size());
    const OpKind* kind = find_kind(name);
    if (kind == nullptr) return fail(word, "unknown operation");
    op.kind = kind->kind;
    op.axes = kind->axes;

    OpValue& value = take_value(name, *kind);
    if (value.fault != nullptr) return fail(word, value.fault);
    op.value = value.index;
    if (op.is_inverted && !value.has_inverse) value.has_inverse = has_inverse(op);
    if (op.is_inverted && !*value.has_inverse) return fail(word, "it has no inverse");
    m_node.ops.push_back(op);
}

void OpReader::read() {
    const Property* order = m_reader.find("xformOpOrder");
    if (order == nullptr || !order->value) return;
    m_node.says_ops = true;
    const auto* words = std::get_if<std::vector<std::string_view>>(&order->value->data);
    if (words == nullptr) return fail("xformOpOrder", "no list of words");
    // what stands before the reset has no effect
    const auto reset = std::find(words->rbegin(), words->rend(), reset_word);
    m_node.resets_stack = reset != words->rend();
    for (auto word = reset.base(); word != words->end(); ++word) read_op(*word);
}

Timed<std::uint8_t> read_visibility(PrimReader& reader) {
    Property* property = reader.find("visibility");
    if (property == nullptr) return {};
    Timed<std::string_view> words = take_timed<std::string_view>(*property);
    Timed<std::uint8_t> invisible{std::move(words.times), std::move(words.ends), {}};
    for (const std::string_view word : words.values) {
        if (word != "invisible" && word != "inherited")
            reader.findings().record(UsdFindingCode::unknown_token, property->offset,
                                     [&] { return "visibility = " + quoted(word); });
        invisible.values.push_back(word == "invisible");
    }
    if (invisible.values.size() != invisible.get_sample_count()) return {};
    return invisible;
}

}  // namespace

void read_node(PrimReader& reader, const UsdNode& parent, UsdNode& node) {
    node.name = reader.take_name(reader.prim().name);
    OpReader(reader, node).read();
    node.invisible = read_visibility(reader);
    node.purpose = reader.take_word("purpose", purpose_words, parent.purpose);
}

}  // namespace sds_usda
