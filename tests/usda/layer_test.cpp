#include "io/usda/layer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>

#include "support/scratch_folder.h"

namespace sds_usda {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Layer layer_of(const std::string& text) {
    LayerResult result = read_layer("#usda 1.0\n" + text);
    for (const UsdFinding& finding : result.findings.get_entries())
        if (severity_of(finding.code) == UsdSeverity::error) ADD_FAILURE() << to_text(finding, "layer") << "\n" << text;
    return result.layer ? std::move(*result.layer) : Layer{};
}

/// The prim "a" with `body`.
struct Parsed {
    explicit Parsed(const std::string& body) : layer(layer_of("def \"a\" {\n" + body + "\n}\n")) {}

    const Prim& prim() const { return layer.root.children.at(0); }
    const Property& property(std::size_t i = 0) const { return prim().properties.at(i); }
    template <class T>
    std::vector<T> scalars(std::size_t i = 0) const {
        return std::get<std::vector<T>>(property(i).value.value().data);
    }

    Layer layer;
};

TEST(UsdaText, StringsOfAllQuotingsAndEscapes) {
    const std::pair<std::string, std::string> cases[] = {
        {R"("")", ""},
        {R"('')", ""},
        {R"("""""")", ""},
        {R"("it's")", "it's"},
        {R"('say "x"')", "say \"x\""},
        {"\"\"\"two\nlines \"quoted\" \"\"\"", "two\nlines \"quoted\" "},
        {"'''two\r\nlines' ''x'''", "two\r\nlines' ''x"},
        {R"("""a\"""b""")", "a\"\"\"b"},
        {R"("a\"b\'c\\")", "a\"b'c\\"},
        {R"("\a\b\f\n\r\t\v\q")", "\a\b\f\n\r\t\vq"},
        {R"("\x41\x4\x4g\101\7\1011")", "A\x04\x04gA\aA1"},
        {R"("# no // comment /* in */ here")", "# no // comment /* in */ here"},
        {"\"\xC3\xA4\xE2\x82\xAC\"", "\xC3\xA4\xE2\x82\xAC"},
    };
    for (const auto& [literal, contents] : cases)
        EXPECT_THAT(Parsed("string s = " + literal).scalars<std::string_view>(), ElementsAre(contents)) << literal;

    const std::pair<std::string, std::string> assets[] = {{"@@", ""},
                                                          {"@a b.png@", "a b.png"},
                                                          {"@@@a@b@@c@@@", "a@b@@c"},
                                                          {"@@@a\\@@@b@@@", "a@@@b"},
                                                          {"@@@a@@@@@", "a@@"},
                                                          {R"(@C:\maps\x.png@)", R"(C:\maps\x.png)"}};
    for (const auto& [literal, contents] : assets)
        EXPECT_THAT(Parsed("asset s = " + literal).scalars<std::string_view>(), ElementsAre(contents)) << literal;
}

/// Numbers as the C library prints them must come back with all their bits.
TEST(UsdaText, NumbersToTheLastBit) {
    std::mt19937_64 random(7);
    std::string floats, doubles;
    std::vector<std::uint32_t> float_bits;
    std::vector<std::uint64_t> double_bits;
    char digits[64];
    while (double_bits.size() < 2000) {
        const auto wide = std::bit_cast<double>(random());
        const auto narrow = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        if (wide - wide != 0.0 || narrow - narrow != 0.0f) continue;  // NaN and infinity
        std::snprintf(digits, sizeof digits, "%.17g, ", wide);
        doubles += digits;
        double_bits.push_back(std::bit_cast<std::uint64_t>(wide));
        std::snprintf(digits, sizeof digits, "%.9E,", static_cast<double>(narrow));
        floats += digits;
        float_bits.push_back(std::bit_cast<std::uint32_t>(narrow));
    }
    const Parsed parsed("double[] d = [" + doubles + "]\nfloat[] f = [" + floats + "]");
    const auto read_doubles = parsed.scalars<double>(0);
    const auto read_floats = parsed.scalars<float>(1);
    ASSERT_EQ(read_doubles.size(), double_bits.size());
    ASSERT_EQ(read_floats.size(), float_bits.size());
    for (std::size_t i = 0; i < double_bits.size(); ++i) {
        ASSERT_EQ(std::bit_cast<std::uint64_t>(read_doubles[i]), double_bits[i]);
        ASSERT_EQ(std::bit_cast<std::uint32_t>(read_floats[i]), float_bits[i]);
    }

    constexpr float infinity = std::numeric_limits<float>::infinity();
    EXPECT_THAT(Parsed("float[] f = [.5, 5., -.5e1, inf, -inf, 1e-60, -0]").scalars<float>(),
                ElementsAre(0.5f, 5.0f, -5.0f, infinity, -infinity, 0.0f, 0.0f));
    EXPECT_NE(Parsed("float f = nan").scalars<float>().at(0), Parsed("float f = nan").scalars<float>().at(0));
    EXPECT_THAT(Parsed("int[] i = [-2147483648, 2147483647,]").scalars<std::int32_t>(), ElementsAre(INT_MIN, INT_MAX));
    EXPECT_THAT(Parsed("uint64 i = 18446744073709551615").scalars<std::uint64_t>(), ElementsAre(UINT64_MAX));
    EXPECT_THAT(Parsed("int64 i = -9223372036854775808").scalars<std::int64_t>(), ElementsAre(INT64_MIN));
    EXPECT_THAT(Parsed("uint i = 4294967295; uchar c = 255").scalars<std::uint32_t>(0), ElementsAre(UINT32_MAX));
    EXPECT_THAT(Parsed("bool[] b = [true, false, 1, 0]").scalars<std::int32_t>(), ElementsAre(1, 0, 1, 0));
}

// Lines of shapes.txt: what a value is made of, its components, how many scalars it has, its type and the value. Types
// that nobody knows are read by their looks.
TEST(UsdaText, EveryTypeHasItsShape) {
    const std::map<std::string, ValueKind> kinds{{"float32", ValueKind::float32},
                                                 {"float64", ValueKind::float64},
                                                 {"int32", ValueKind::int32},
                                                 {"string", ValueKind::string},
                                                 {"asset", ValueKind::asset}};
    std::ifstream lines(QN_SOURCE_DIR "/tests/usda/shapes.txt");
    std::string kind, type, text;
    int components, scalars;
    while (std::getline(lines >> kind >> components >> scalars >> type, text)) {
        const Parsed parsed(type + " x =" + text);
        const Value& value = parsed.property().value.value();
        EXPECT_EQ(value.type.kind, kinds.at(kind)) << type;
        EXPECT_EQ(value.type.components, components) << type;
        EXPECT_EQ(value.get_scalar_count(), static_cast<std::size_t>(scalars)) << type;
        EXPECT_EQ(value.type.is_array, type.ends_with("[]")) << type;
    }
    EXPECT_TRUE(lines.eof());
    EXPECT_TRUE(Parsed("float x = None").property().is_blocked);
}

TEST(UsdaLayer, KeepsEveryKindOfStatement) {
    const std::string text = ScratchFolder::read(QN_SOURCE_DIR "/tests/usda/every_statement.usda");
    const Layer layer = layer_of(text.substr(text.find('\n') + 1));
    const auto number = [&](const char* key) { return layer.root.find_metadatum(key)->value.number(); };
    EXPECT_EQ(layer.root.find_metadatum("comment")->value.string(), "What it is");
    EXPECT_EQ(layer.root.find_metadatum("upAxis")->value.string(), "Z");
    EXPECT_EQ(number("metersPerUnit"), 0.01);
    EXPECT_EQ(layer.root.find_metadatum("subLayers")->value.get_scalar_count(), 2u);
    const auto& data = std::get<std::vector<DictionaryEntry>>(layer.root.find_metadatum("customLayerData")->value.data);
    ASSERT_EQ(data.size(), 2u);
    const auto& more = std::get<std::vector<DictionaryEntry>>(data[1].value.data);
    EXPECT_EQ(more.at(0).value.get_scalar_count(), 2u);
    EXPECT_EQ(more.at(1).key, "quoted key");
    EXPECT_EQ(layer.root.find_metadatum("relocates")->value.type.kind, ValueKind::dictionary);
    EXPECT_THAT(layer.root.reorders.at(0).names, ElementsAre("World", "_c"));

    ASSERT_EQ(layer.root.children.size(), 2u);
    EXPECT_EQ(layer.root.children[0].specifier, Specifier::class_);
    const Prim& world = layer.root.children[1];
    EXPECT_EQ(world.specifier, Specifier::over);
    EXPECT_EQ(world.metadata.at(0).op, ListOp::prepend);
    EXPECT_EQ(world.metadata.at(0).value.get_scalar_count(), 2u);
    EXPECT_EQ(world.metadata.at(1).op, ListOp::remove);
    EXPECT_TRUE(world.find_metadatum("payload")->is_none);
    EXPECT_EQ(world.children.at(0).type, "Scope");
    EXPECT_EQ(world.reorders.size(), 2u);

    const Property& word = *world.find_property("ns:word");
    EXPECT_TRUE(word.is_custom && word.is_uniform);
    EXPECT_EQ(word.metadata.size(), 2u);
    const Property& y = *world.find_property("y");
    EXPECT_FALSE(y.value);
    EXPECT_EQ(y.paths.at(0).op, ListOp::prepend);
    EXPECT_THAT(y.paths.at(0).paths, ElementsAre("/B.o", "/C.o"));
    const Property& r = *world.find_property("r");
    ASSERT_TRUE(r.is_relationship() && r.paths.size() == 2);
    EXPECT_EQ(r.paths[1].op, ListOp::reorder);
    EXPECT_THAT(r.paths[1].paths, ElementsAre("/T", "/U"));
    const TimeSamples& samples = *world.find_property("t")->samples;
    EXPECT_THAT(samples.times, ElementsAre(1, 3));
    EXPECT_THAT(std::get<std::vector<double>>(samples.values.data), ElementsAre(11, 30));
    ASSERT_EQ(world.variant_sets.at(0).variants.size(), 2u);
    EXPECT_EQ(world.variant_sets[0].variants[0].content.children.at(0).name, "in");
    EXPECT_EQ(world.variant_sets[0].variants[1].name, "two-2");
}

/// Names of the prims in depth-first order, each with the value of its attribute "x" where there is one.
std::string outline(const Prim& prim) {
    std::string text;
    for (const Prim& child : prim.children) {
        text += std::string(child.name);
        if (const Property* x = child.find_property("x"))
            text += "=" + std::to_string(static_cast<int>(x->value->number().value_or(-1)));
        text += "(" + outline(child) + ")";
    }
    return text;
}

std::string outline_with_variants(const std::string& text, std::size_t finding_count) {
    Layer layer = layer_of(text);
    UsdFindings findings;
    apply_variants(layer, findings);
    EXPECT_EQ(findings.get_entries().size(), finding_count) << text;
    return outline(layer.root);
}

TEST(UsdaLayer, TakesTheSelectedVariants) {
    const std::string sets = R"({ int x = 1
        def "own" { int x = 2 }
        variantSet "s" = {
            "red" { int x = 3; over "own" { int x = 4; def "red" {} } def "new" {} }
            "blue" ( variants = { string t = "deep" } ) {
                def "blue" { int x = 5 }
                variantSet "t" = { "deep" { over "blue" { int x = 6; def "deep" {} } } }
            }
        } })";
    const auto with = [&](const std::string& selected) {
        return "def \"p\" ( variants = { " + selected + " } ) " + sets;
    };
    EXPECT_EQ(outline_with_variants(with("string s = \"red\""), 0), "p=1(own=2(red())new())");
    EXPECT_EQ(outline_with_variants(with("string s = \"blue\""), 0), "p=1(own=2()blue=5(deep()))");
    EXPECT_EQ(outline_with_variants(with("string s = \"blue\"; string t = \"no\""), 1), "p=1(own=2()blue=5())");
    EXPECT_EQ(outline_with_variants(with("string s = \"green\""), 1), "p=1(own=2())");
    EXPECT_EQ(outline_with_variants(with(""), 1), "p=1(own=2())");

    const std::string four = "def \"a\" {} def \"b\" {} def \"c\" {} def \"d\" {}";
    EXPECT_EQ(outline_with_variants(four + "reorder rootPrims = ['d', 'b', 'x', 'd']", 0), "a()d()b()c()");
    EXPECT_EQ(outline_with_variants(four + "reorder rootPrims = ['c', 'a']", 0), "c()d()a()b()");
}

}  // namespace
}  // namespace sds_usda
