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

class OpReader {
public:
    OpReader(PrimReader& reader, UsdNode& node) : reader_(reader), node_(node) {}

    void read();

private:
    void read_op(std::string_view word);
    void fail(std::string_view word, const char* why);
    bool is_usable(const UsdXformOp& op, const Timed<double>& value, const char*& why) const;

    PrimReader& reader_;
    UsdNode& node_;
    std::unordered_map<std::string_view, std::uint32_t> values_;
};

void OpReader::fail(std::string_view word, const char* why) {
    reader_.findings().record(UsdFindingCode::bad_transform, reader_.place_of("xformOpOrder"),
                              [&] { return name_in(word, reader_.prim()) + ": " + why; });
}

bool OpReader::is_usable(const UsdXformOp& op, const Timed<double>& value, const char*& why) const {
    why = "it has no value";
    if (value.is_empty()) return false;
    why = "NaN or infinite number";
    for (const double v : value.values)
        if (!std::isfinite(v)) return false;
    why = "it has no inverse";
    for (std::size_t s = 0; op.is_inverted && s < value.sample_count(); ++s)
        if (!inverse(op_matrix(op, value.sample(s)))) return false;
    return true;
}

void OpReader::read_op(std::string_view word) {
    if (word == reset_word) {
        node_.resets_stack = true;
        node_.ops.clear();
        return;
    }
    UsdXformOp op;
    std::string_view name = word;
    op.is_inverted = name.starts_with(invert_prefix);
    if (op.is_inverted) name.remove_prefix(invert_prefix.size());
    const OpKind* kind = find_kind(name);
    if (kind == nullptr) return fail(word, "unknown operation");
    op.kind = kind->kind;
    op.axes = kind->axes;

    const auto [known, is_new] = values_.try_emplace(name, static_cast<std::uint32_t>(node_.op_values.size()));
    if (is_new) node_.op_values.push_back(reader_.take<double>(name, kind->components, false));
    op.value = known->second;
    const char* why = nullptr;
    if (!is_usable(op, node_.op_values[op.value], why)) return fail(word, why);
    node_.ops.push_back(op);
}

void OpReader::read() {
    const Property* order = reader_.find("xformOpOrder");
    if (order == nullptr || !order->value) return;
    const auto* words = std::get_if<std::vector<std::string_view>>(&order->value->data);
    if (words == nullptr) return fail("xformOpOrder", "no list of words");
    for (const std::string_view word : *words) read_op(word);
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
    if (invisible.values.size() != invisible.sample_count()) return {};
    return invisible;
}

}  // namespace

void read_node(PrimReader& reader, const UsdNode& parent, UsdNode& node) {
    node.name = reader.prim().name;
    OpReader(reader, node).read();
    node.invisible = read_visibility(reader);
    node.purpose = reader.take_word("purpose", purpose_words, parent.purpose);
}

}  // namespace sds_usda
