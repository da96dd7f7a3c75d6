#pragma once

#include "io/usda/finding.h"
#include "io/usda/value.h"

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sds_usda {

enum class Specifier : std::uint8_t { def, over, class_ };

/// How a statement edits a list: the whole list, or items put to it, taken from it or moved in it.
enum class ListOp : std::uint8_t { whole, add, append, prepend, remove, reorder };

struct Metadatum {
    std::string_view key;  ///< "comment" for a bare string
    ListOp op = ListOp::whole;
    std::size_t offset = 0;
    bool is_none = false;
    Value value;
};

/// Targets of a relationship, or sources of an attribute's connection.
struct PathList {
    ListOp op = ListOp::whole;
    std::size_t offset = 0;
    std::vector<std::string_view> paths;
};

/// Values of an attribute over time, times strictly increasing. The scalars of all samples lie in `values`, sample
/// after sample.
struct TimeSamples {
    std::vector<double> times;
    std::vector<std::size_t> ends;  ///< of arrays only: the scalar behind the last one of each sample
    Value values;
    bool in_file_order = true;  ///< false: the text has them in another order
};

/// An attribute or a relationship (type "rel"), all its statements together.
struct Property {
    std::string_view type, name;
    std::size_t offset = 0;
    bool is_array = false, is_custom = false, is_uniform = false;
    bool is_blocked = false;  ///< the value is None
    std::optional<Value> value;
    std::unique_ptr<TimeSamples> samples;
    std::vector<PathList> paths;
    std::vector<Metadatum> metadata;

    bool is_relationship() const { return type == "rel"; }
};

struct VariantSet;

/// Names in the order that a `reorder` statement asks for.
struct Reorder {
    std::string_view what;  ///< "rootPrims", "nameChildren" or "properties"
    std::vector<std::string_view> names;
};

struct Prim {
    Specifier specifier = Specifier::def;
    std::string_view type, name;  ///< type may be empty
    std::size_t offset = 0;
    std::vector<Metadatum> metadata;  ///< strongest opinion first
    std::vector<Property> properties;
    std::vector<Prim> children;
    std::vector<VariantSet> variant_sets;
    std::vector<Reorder> reorders;

    // The first of that name, which is the strongest opinion.
    const Metadatum* find_metadatum(std::string_view key) const;
    const Property* find_property(std::string_view key) const;
};

struct Variant {
    std::string_view name;
    Prim content;  ///< what it adds to its prim; specifier, type and name mean nothing
};

struct VariantSet {
    std::string_view name;
    std::size_t offset = 0;
    std::vector<Variant> variants;
};

/// The tree of one layer. Owns the text that all its strings look into; can be moved, not copied.
struct Layer {
    std::unique_ptr<const std::string> text;
    std::deque<std::string> decoded;  ///< strings that are not in the text as they stand
    Prim root;                        ///< metadata, root prims and their order
};

struct LayerResult {
    std::optional<Layer> layer;  ///< empty exactly when findings.has_errors()
    UsdFindings findings;
};

/// Prims, dictionaries and variants within each other.
inline constexpr unsigned int max_nesting = 128;

/// Reads the text of one layer: its whole grammar, without a look at what it composes or means. Never throws on bad
/// input; reading stops at the first error, which has its line and column as every finding has. Time and memory are
/// linear in the text: a number takes its bytes in a flat array.
LayerResult read_layer(std::string text);

/// The same without places, for a caller that adds findings of its own and settles them later. On an error the layer is
/// there with its text only.
Layer parse_layer(std::string text, UsdFindings& findings);

/// Takes the selected variant of every set into its prim, where the prim's own opinions win, and brings children into
/// the order that the layer asks for. A set without a selection, or with one of a variant that is not there, is a
/// finding.
void apply_variants(Layer& layer, UsdFindings& findings);

}  // namespace sds_usda
