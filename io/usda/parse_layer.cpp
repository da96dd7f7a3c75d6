#include "io/usda/layer.h"
#include "io/usda/lexer.h"
#include "io/usda/value_parser.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

namespace sds_usda {

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";  // some editors put it before UTF-8

using Names = std::unordered_set<std::string_view>;

/// What the statements of one block have named so far: a property's statements are one property, a prim's name comes
/// once.
struct BlockNames {
    std::unordered_map<std::string_view, std::size_t> properties;
    Names children;
};

struct PropertyHead {
    ListOp op = ListOp::whole;
    bool is_custom = false, is_uniform = false;
};

bool is_specifier(const Token& token) { return token.is("def") || token.is("over") || token.is("class"); }

Specifier specifier_of(const Token& token) {
    if (token.is("def")) return Specifier::def;
    return token.is("over") ? Specifier::over : Specifier::class_;
}

bool is_prim_name(std::string_view name) {
    if (name.empty() || (name.front() >= '0' && name.front() <= '9')) return false;
    return std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               static_cast<unsigned char>(c) >= 0x80;
    });
}

std::optional<ListOp> list_op_of(const Token& token) {
    if (token.is("add")) return ListOp::add;
    if (token.is("append")) return ListOp::append;
    if (token.is("prepend")) return ListOp::prepend;
    if (token.is("delete")) return ListOp::remove;
    if (token.is("reorder")) return ListOp::reorder;
    return std::nullopt;
}

class LayerParser {
public:
    LayerParser(Layer& layer, UsdFindings& findings)
        : m_layer(layer),
          m_root(layer.root),
          m_lexer(*layer.text, layer.decoded),
          m_values(m_lexer, m_depth),
          m_findings(findings) {}

    void parse();

private:
    const Token& token() const { return m_lexer.token(); }
    bool take(char symbol);
    void expect(char symbol, const char* where);
    std::string_view take_name(const char* what);

    void read_metadata(std::vector<Metadatum>& metadata);
    Metadatum read_metadatum();
    void read_root_statement();
    void read_child(Prim& parent, BlockNames& names);
    void read_block(Prim& prim);
    void read_statement(Prim& prim, BlockNames& names);
    void read_variant_set(Prim& prim);
    bool read_reorder(Prim& prim);
    void read_property(Prim& prim, BlockNames& names);
    PropertyHead read_property_head();
    Property& find_or_add(Prim& prim, BlockNames& names, Property&& head);
    void read_field(Property& property, const ValueType& type, ListOp op);
    void read_value(Property& property, const ValueType& type, ListOp op);
    void read_path_list(Property& property, ListOp op);
    void record_repeated(const Property& property);

    Layer& m_layer;
    Prim& m_root;
    Lexer m_lexer;
    unsigned int m_depth = 0;
    ValueParser m_values;
    UsdFindings& m_findings;
    BlockNames m_root_names;
};

bool LayerParser::take(char symbol) {
    if (!token().is(symbol)) return false;
    m_lexer.advance();
    return true;
}

void LayerParser::expect(char symbol, const char* where) {
    if (!take(symbol)) m_lexer.fail_at_token(std::string("'") + symbol + "' " + where);
}

std::string_view LayerParser::take_name(const char* what) {
    if (token().kind != TokenKind::identifier) m_lexer.fail_at_token(what);
    const std::string_view name = token().text;
    m_lexer.advance();
    return name;
}

void LayerParser::parse() {
    if (m_layer.text->starts_with(byte_order_mark)) m_lexer.move_to(byte_order_mark.size());
    m_lexer.advance();
    if (token().is('(')) read_metadata(m_root.metadata);
    while (token().kind != TokenKind::end) read_root_statement();
}

void LayerParser::read_root_statement() {
    if (is_specifier(token())) return read_child(m_root, m_root_names);
    if (take(';')) return;
    if (!token().is("reorder") || !read_reorder(m_root)) m_lexer.fail_at_token("def, over or class");
    m_values.end_statement('\0');
}

void LayerParser::read_metadata(std::vector<Metadatum>& metadata) {
    expect('(', "of the metadata");
    while (!take(')')) {
        metadata.push_back(read_metadatum());
        m_values.end_statement(')');
    }
}

Metadatum LayerParser::read_metadatum() {
    Metadatum entry;
    entry.offset = token().offset;
    if (token().kind == TokenKind::string) {
        entry.key = "comment";
        entry.value = m_values.read_untyped();
        return entry;
    }
    entry.op = list_op_of(token()).value_or(ListOp::whole);
    if (entry.op != ListOp::whole) m_lexer.advance();
    entry.key = take_name("the name of a metadatum or ')'");
    expect('=', "behind the name of a metadatum");
    entry.is_none = token().is("None");
    if (entry.is_none)
        m_lexer.advance();
    else
        entry.value = m_values.read_untyped();
    return entry;
}

void LayerParser::read_child(Prim& parent, BlockNames& names) {
    Prim prim;
    prim.specifier = specifier_of(token());
    prim.offset = token().offset;
    m_lexer.advance();
    if (token().kind == TokenKind::identifier) prim.type = take_name("");
    if (token().kind != TokenKind::string || !is_prim_name(token().text)) m_lexer.fail_at_token("the name of a prim");
    prim.name = token().text;
    if (!names.children.insert(prim.name).second)
        m_lexer.fail(UsdFindingCode::duplicate_prim, token().offset, quoted(prim.name));
    m_lexer.advance();
    if (token().is('(')) read_metadata(prim.metadata);
    read_block(prim);
    parent.children.push_back(std::move(prim));
}

void LayerParser::read_block(Prim& prim) {
    const NestingScope scope(m_depth, m_lexer);
    BlockNames names;
    expect('{', "of a prim or variant");
    while (!take('}'))
        if (!take(';')) read_statement(prim, names);
}

/// What ends in a brace needs nothing behind it, other statements a ';' or the end of the line.
void LayerParser::read_statement(Prim& prim, BlockNames& names) {
    if (is_specifier(token())) return read_child(prim, names);
    if (token().is("variantSet")) return read_variant_set(prim);
    if (!token().is("reorder") || !read_reorder(prim)) read_property(prim, names);
    m_values.end_statement('}');
}

void LayerParser::read_variant_set(Prim& prim) {
    VariantSet set;
    set.offset = token().offset;
    m_lexer.advance();
    if (token().kind != TokenKind::string) m_lexer.fail_at_token("the name of a variant set");
    set.name = token().text;
    m_lexer.advance();
    expect('=', "behind the name of a variant set");
    expect('{', "of a variant set");
    while (!take('}')) {
        if (token().kind != TokenKind::string) m_lexer.fail_at_token("the name of a variant or '}'");
        Variant& variant = set.variants.emplace_back();
        variant.name = token().text;
        m_lexer.advance();
        if (token().is('(')) read_metadata(variant.content.metadata);
        read_block(variant.content);
    }
    prim.variant_sets.push_back(std::move(set));
}

/// "reorder nameChildren = [...]"; false where it is a property's list that is reordered, the cursor back at its start.
bool LayerParser::read_reorder(Prim& prim) {
    const std::size_t start = token().offset;
    m_lexer.advance();
    Reorder reorder{token().text, {}};
    if (!token().is("nameChildren") && !token().is("rootPrims") && !token().is("properties")) {
        m_lexer.move_to(start);
        m_lexer.advance();
        return false;
    }
    m_lexer.advance();
    expect('=', "behind what is to be reordered");
    m_values.read_strings(reorder.names);
    prim.reorders.push_back(std::move(reorder));
    return true;
}

PropertyHead LayerParser::read_property_head() {
    PropertyHead head;
    for (;; m_lexer.advance()) {
        if (const auto op = list_op_of(token()))
            head.op = *op;
        else if (token().is("custom"))
            head.is_custom = true;
        else if (token().is("uniform"))
            head.is_uniform = true;
        else if (!token().is("varying") && !token().is("config"))
            return head;
    }
}

void LayerParser::read_property(Prim& prim, BlockNames& names) {
    const std::size_t start = token().offset;
    const PropertyHead head = read_property_head();
    if (token().kind != TokenKind::identifier) m_lexer.fail_at_token("a property, a prim or '}'");
    Property statement;
    statement.type = token().text;
    const ValueType type = m_values.read_type();
    statement.is_array = type.is_array;
    statement.offset = start;
    statement.is_custom = head.is_custom;
    statement.is_uniform = head.is_uniform;
    statement.name = take_name("the name of a property");

    Property& property = find_or_add(prim, names, std::move(statement));
    if (take('.'))
        read_field(property, type, head.op);
    else if (take('='))
        read_value(property, type, head.op);
    if (token().is('(')) read_metadata(property.metadata);
}

Property& LayerParser::find_or_add(Prim& prim, BlockNames& names, Property&& head) {
    const auto [known, is_new] = names.properties.try_emplace(head.name, prim.properties.size());
    if (is_new) return prim.properties.emplace_back(std::move(head));
    Property& property = prim.properties[known->second];
    if (property.type != head.type || property.is_array != head.is_array)
        m_lexer.fail(UsdFindingCode::wrong_value, head.offset, quoted(head.name) + " had another type before");
    property.is_custom |= head.is_custom;
    property.is_uniform |= head.is_uniform;
    return property;
}

void LayerParser::read_field(Property& property, const ValueType& type, ListOp op) {
    const std::string_view field = token().text;
    if (token().is("spline")) {
        m_findings.record(UsdFindingCode::ignored_spline, token().offset, [&] { return quoted(property.name); });
        m_lexer.advance();
        expect('=', "behind the name of a property");
        if (!token().is('{')) m_lexer.fail_at_token("'{' of a spline");
        return m_values.skip_block('{', '}');
    }
    if (property.is_relationship() || (!token().is("timeSamples") && !token().is("connect")))
        m_lexer.fail_at_token("timeSamples or connect of an attribute");
    m_lexer.advance();
    expect('=', "behind the name of a property");
    if (field == "connect") return read_path_list(property, op);
    if (property.samples) record_repeated(property);
    property.samples = m_values.read_time_samples(type, m_findings);
}

void LayerParser::read_value(Property& property, const ValueType& type, ListOp op) {
    if (property.is_relationship()) return read_path_list(property, op);
    if (property.value || property.is_blocked) record_repeated(property);
    property.value.reset();
    property.is_blocked = token().is("None");
    if (property.is_blocked) return m_lexer.advance();
    Value& value = property.value.emplace();
    value.offset = token().offset;
    m_values.append(type, value);
}

void LayerParser::read_path_list(Property& property, ListOp op) {
    PathList& list = property.paths.emplace_back();
    list.op = op;
    list.offset = token().offset;
    m_values.read_paths(list.paths);
}

void LayerParser::record_repeated(const Property& property) {
    m_findings.record(UsdFindingCode::repeated_value, token().offset, [&] { return quoted(property.name); });
}

/// Checks the first line; returns what stands for it in a finding, or nothing where it is right.
std::optional<UsdFindingCode> check_first_line(std::string_view text) {
    if (text.starts_with("PXR-USDC") || text.starts_with("PK\x03\x04")) return UsdFindingCode::binary_file;
    if (text.starts_with(byte_order_mark)) text.remove_prefix(byte_order_mark.size());
    if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return UsdFindingCode::empty_file;
    if (text.starts_with("#usda 1.") || text.starts_with("#sdf 1.")) return std::nullopt;
    return UsdFindingCode::not_usda;
}

}  // namespace

const Metadatum* Prim::find_metadatum(std::string_view key) const {
    const auto found =
        std::find_if(metadata.begin(), metadata.end(), [key](const Metadatum& m) { return m.key == key; });
    return found == metadata.end() ? nullptr : &*found;
}

const Property* Prim::find_property(std::string_view key) const {
    const auto found =
        std::find_if(properties.begin(), properties.end(), [key](const Property& p) { return p.name == key; });
    return found == properties.end() ? nullptr : &*found;
}

Layer parse_layer(std::string text, UsdFindings& findings) {
    Layer layer;
    layer.text = std::make_unique<const std::string>(std::move(text));
    if (const auto code = check_first_line(*layer.text)) {
        findings.record(*code, whole_file, [] { return std::string(); });
        return layer;
    }
    try {
        LayerParser parser(layer, findings);
        parser.parse();
    } catch (const UsdSyntaxError& error) {
        findings.record(error.code, error.offset, [&] { return error.detail; });
    }
    return layer;
}

LayerResult read_layer(std::string text) {
    LayerResult result;
    Layer layer = parse_layer(std::move(text), result.findings);
    result.findings.settle_places(*layer.text);
    if (!result.findings.has_errors()) result.layer = std::move(layer);
    return result;
}

}  // namespace sds_usda
