#include "io/usda/layer.h"

#include <iterator>
#include <unordered_map>

namespace sds_usda {

namespace {

using Selections = std::unordered_map<std::string_view, std::string_view>;
using Places = std::unordered_map<std::string_view, std::size_t>;

void add_selections(const Prim& prim, Selections& selections) {
    for (const Metadatum& metadatum : prim.metadata) {
        const auto* entries = std::get_if<std::vector<DictionaryEntry>>(&metadatum.value.data);
        if (metadatum.key != "variants" || entries == nullptr) continue;
        // try_emplace: the prim's own selection stands before those of its variants
        for (const DictionaryEntry& entry : *entries)
            if (const auto name = entry.value.string()) selections.try_emplace(entry.key, *name);
    }
}

template <class T>
void append(std::vector<T>& to, std::vector<T>&& from) {
    to.insert(to.end(), std::make_move_iterator(from.begin()), std::make_move_iterator(from.end()));
}

template <class T>
Places places_of(const std::vector<T>& items) {
    Places places;
    for (std::size_t i = 0; i < items.size(); ++i) places.emplace(items[i].name, i);
    return places;
}

/// Takes from `weak` what `strong` does not say itself.
void merge_property(Property& strong, Property&& weak) {
    if (!strong.value && !strong.is_blocked && !strong.samples) {
        strong.value = std::move(weak.value);
        strong.is_blocked = weak.is_blocked;
        strong.samples = std::move(weak.samples);
    }
    if (strong.paths.empty()) strong.paths = std::move(weak.paths);
    append(strong.metadata, std::move(weak.metadata));
}

/// One prim with the weaker opinions about it: those of its variants and of its ancestors' variants. All are merged at
/// once, so that the time is linear however many sets there are.
class PrimMerger {
public:
    PrimMerger(Prim& prim, std::vector<Prim>&& weaker, UsdFindings& findings)
        : m_prim(prim), m_weaker(std::move(weaker)), m_findings(findings) {}

    void merge();

private:
    bool select(VariantSet& set);
    void select_variants();
    void merge_properties();
    void merge_children();
    void reorder_children(const Reorder& reorder);

    Prim& m_prim;
    std::vector<Prim> m_weaker;
    UsdFindings& m_findings;
    Selections m_selections;
};

/// Puts the selected variant last of the weaker opinions; false where there is none.
bool PrimMerger::select(VariantSet& set) {
    const auto selection = m_selections.find(set.name);
    if (selection == m_selections.end()) {
        m_findings.record(UsdFindingCode::no_selection, set.offset,
                          [&] { return quoted(set.name) + " of " + quoted(m_prim.name); });
        return false;
    }
    for (Variant& variant : set.variants) {
        if (variant.name != selection->second) continue;
        m_weaker.push_back(std::move(variant.content));
        return true;
    }
    m_findings.record(UsdFindingCode::unknown_variant, set.offset,
                      [&] { return quoted(selection->second) + " of " + quoted(set.name); });
    return false;
}

void PrimMerger::select_variants() {
    add_selections(m_prim, m_selections);
    std::vector<VariantSet> sets = std::move(m_prim.variant_sets);
    m_prim.variant_sets.clear();
    for (Prim& weak : m_weaker) {
        add_selections(weak, m_selections);
        append(sets, std::move(weak.variant_sets));
    }
    // A variant may select variants and bring sets of its own, which are taken in turn.
    for (std::size_t i = 0; i < sets.size(); ++i) {
        VariantSet set = std::move(sets[i]);
        if (!select(set)) continue;
        add_selections(m_weaker.back(), m_selections);
        append(sets, std::move(m_weaker.back().variant_sets));
    }
}

void PrimMerger::merge_properties() {
    Places places = places_of(m_prim.properties);
    for (Prim& weak : m_weaker) {
        if (m_prim.type.empty()) m_prim.type = weak.type;
        if (m_prim.specifier == Specifier::over) m_prim.specifier = weak.specifier;
        if (m_prim.reorders.empty()) m_prim.reorders = std::move(weak.reorders);
        append(m_prim.metadata, std::move(weak.metadata));
        for (Property& property : weak.properties) {
            const auto [place, is_new] = places.try_emplace(property.name, m_prim.properties.size());
            if (is_new)
                m_prim.properties.push_back(std::move(property));
            else
                merge_property(m_prim.properties[place->second], std::move(property));
        }
    }
}

void PrimMerger::merge_children() {
    Places places = places_of(m_prim.children);
    std::vector<std::vector<Prim>> weaker_children(m_prim.children.size());
    for (Prim& weak : m_weaker) {
        for (Prim& child : weak.children) {
            const auto [place, is_new] = places.try_emplace(child.name, m_prim.children.size());
            if (is_new) {
                m_prim.children.push_back(std::move(child));
                weaker_children.emplace_back();
            } else {
                weaker_children[place->second].push_back(std::move(child));
            }
        }
    }
    for (std::size_t i = 0; i < m_prim.children.size(); ++i)
        PrimMerger(m_prim.children[i], std::move(weaker_children[i]), m_findings).merge();
}

/// Every named child takes the unnamed ones behind it along; those before the first named one stay in front.
void PrimMerger::reorder_children(const Reorder& reorder) {
    std::vector<Prim>& children = m_prim.children;
    const Places places = places_of(children);
    std::vector<bool> is_named(children.size(), false);
    std::vector<std::size_t> order;
    for (const std::string_view name : reorder.names) {
        const auto place = places.find(name);
        if (place == places.end() || is_named[place->second]) continue;
        is_named[place->second] = true;
        order.push_back(place->second);
    }
    if (order.empty()) return;
    std::vector<Prim> sorted;
    const auto take_from = [&](std::size_t first) {
        std::size_t i = first;
        do sorted.push_back(std::move(children[i++]));
        while (i < children.size() && !is_named[i]);
    };
    if (!is_named[0]) take_from(0);
    for (const std::size_t first : order) take_from(first);
    children = std::move(sorted);
}

void PrimMerger::merge() {
    select_variants();
    merge_properties();
    merge_children();
    if (m_prim.reorders.empty()) return;
    const Reorder& last = m_prim.reorders.back();
    if (last.what != "properties") reorder_children(last);  // the order of properties has no meaning
}

}  // namespace

void apply_variants(Layer& layer, UsdFindings& findings) { PrimMerger(layer.root, {}, findings).merge(); }

}  // namespace sds_usda
