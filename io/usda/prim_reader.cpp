#include "io/usda/prim_reader.h"

#include "io/usda/lexer.h"
#include "io/utf8.h"

namespace sds_usda {

std::size_t place_of_scalar(const std::string& text, std::size_t offset, std::size_t index) {
    std::deque<std::string> decoded;
    Lexer lexer(text, decoded);
    lexer.move_to(offset);
    lexer.advance();
    while (lexer.token().kind != TokenKind::end) {
        const Token token = lexer.token();
        lexer.advance();
        const bool is_scalar =
            token.kind == TokenKind::number || (token.kind == TokenKind::identifier && !token.is("None"));
        if (!is_scalar || lexer.token().is(':')) continue;  // that is the time of a sample
        if (index-- == 0) return token.offset;
    }
    return offset;
}

std::string name_in(std::string_view attribute, const Prim& prim) {
    return quoted(attribute) + " of " + quoted(prim.name);
}

PrimReader::PrimReader(Prim& prim, const std::string& text, UsdFindings& findings)
    : m_prim(prim), m_text(text), m_findings(findings), m_asked(prim.properties.size(), false) {
    for (std::size_t i = 0; i < prim.properties.size(); ++i) m_places.emplace(prim.properties[i].name, i);
}

Property* PrimReader::find(std::string_view name) {
    const auto place = m_places.find(name);
    if (place == m_places.end()) return nullptr;
    m_asked[place->second] = true;
    return &m_prim.properties[place->second];
}

Value* PrimReader::value_of(Property& property) {
    if (property.samples && !property.samples->times.empty()) return &property.samples->values;
    return property.value ? &*property.value : nullptr;
}

bool PrimReader::check_type(const Property& property, const Value& value, ValueType wanted, bool is_right_kind) {
    const bool is_right =
        is_right_kind && value.type.components == wanted.components && value.type.is_array == wanted.is_array;
    if (is_right) return true;
    m_findings.record(UsdFindingCode::wrong_attribute_type, property.offset, [&] {
        std::string words = wanted.kind == ValueKind::int32 ? "int" : "float";
        if (wanted.components > 1) words += std::to_string(wanted.components);
        return name_in(property.name, m_prim) + " is " + std::string(property.type) + (property.is_array ? "[]" : "") +
               ", expected " + words + (wanted.is_array ? "[]" : "");
    });
    return false;
}

std::vector<std::uint32_t> PrimReader::take_indices(std::string_view name, std::size_t limit) {
    std::vector<std::int32_t> taken = take_array<std::int32_t>(name);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        if (taken[i] >= 0 && static_cast<std::size_t>(taken[i]) < limit) continue;
        m_findings.record(UsdFindingCode::index_out_of_range, place_of(name, i), [&] {
            return std::to_string(taken[i]) + " of " + std::to_string(limit) + " in " + name_in(name, m_prim);
        });
        return {};
    }
    return {taken.begin(), taken.end()};
}

std::optional<std::string_view> PrimReader::take_string(std::string_view name) {
    Property* property = find(name);
    const Value* value = property == nullptr ? nullptr : value_of(*property);
    return value == nullptr ? std::nullopt : value->string();
}

bool PrimReader::take_bool(std::string_view name, bool otherwise) {
    Property* property = find(name);
    const Value* value = property == nullptr ? nullptr : value_of(*property);
    return value == nullptr ? otherwise : value->boolean().value_or(otherwise);
}

std::string PrimReader::take_name(std::string_view name) {
    if (sds_io::is_utf8(name)) return std::string(name);
    m_findings.record(UsdFindingCode::name_not_utf8, m_prim.offset, [&] { return quoted(name); });
    return sds_io::from_latin1(name);
}

std::size_t PrimReader::place_of(std::string_view name) const {
    const auto place = m_places.find(name);
    return place == m_places.end() ? m_prim.offset : m_prim.properties[place->second].offset;
}

std::size_t PrimReader::place_of(std::string_view name, std::size_t index) const {
    const auto place = m_places.find(name);
    if (place == m_places.end()) return m_prim.offset;
    const Property& property = m_prim.properties[place->second];
    if (property.samples && property.samples->values.offset != 0) {
        if (!property.samples->in_file_order) return property.offset;
        return place_of_scalar(m_text, property.samples->values.offset, index);
    }
    return property.value ? place_of_scalar(m_text, property.value->offset, index) : property.offset;
}

void PrimReader::record_ignored() {
    for (std::size_t i = 0; i < m_asked.size(); ++i) {
        const Property& property = m_prim.properties[i];
        const bool has_content = property.value || property.samples || !property.paths.empty();
        if (m_asked[i] || !has_content) continue;
        m_findings.record(UsdFindingCode::ignored_attribute, property.offset,
                          [&] { return name_in(property.name, m_prim); });
    }
}

}  // namespace sds_usda
