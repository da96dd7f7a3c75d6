#include "io/npy.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string_view>

#include "io/input_error.h"
#include "support/scratch_folder.h"

namespace sds_io {

using namespace sds_model;
namespace {

std::string npy_bytes(const std::string& header, const std::string& data, char version = 1) {
    std::string bytes = "\x93NUMPY";
    bytes += {version, '\0', static_cast<char>(header.size()), '\0'};
    if (version > 1) bytes += std::string(2, '\0');
    return bytes + header + data;
}

void expect_refusal(const std::string& bytes, const std::string& reason) {
    const ScratchFolder folder;
    const std::string path = folder.write("a.npy", bytes);
    try {
        read_npy(path);
        ADD_FAILURE() << "read, though: " << reason;
    } catch (const InputError& error) {
        EXPECT_NE(std::string(error.what()).find(path + ": "), std::string::npos) << error.what();
        EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
}

template <class T>
class NpyTyped : public testing::Test {};
using ElementTypes = testing::Types<float, double, std::int8_t, std::uint8_t, std::int16_t, std::uint16_t, std::int32_t,
                                    std::uint32_t, std::int64_t, std::uint64_t>;
TYPED_TEST_SUITE(NpyTyped, ElementTypes);

TYPED_TEST(NpyTyped, ReadsBackWhatItWrote) {
    const ScratchFolder folder;
    using Limits = std::numeric_limits<TypeParam>;
    const std::vector<TypeParam> values = {Limits::lowest(), Limits::max(), TypeParam{1},
                                           TypeParam{2},     TypeParam{3},  TypeParam{0}};
    for (const std::vector<std::size_t>& shape : {std::vector<std::size_t>{6}, {2, 3}, {1, 3, 2}, {0, 4}, {}}) {
        const std::size_t count = shape.empty() ? 1 : shape[0] == 0 ? 0 : values.size();
        const std::span<const TypeParam> written(values.data(), count);
        write_npy<TypeParam>(folder.path("a.npy"), shape, written);
        const NpyArray array = read_npy(folder.path("a.npy"));
        EXPECT_EQ(array.shape, shape);
        EXPECT_EQ(std::get<std::vector<TypeParam>>(array.values),
                  std::vector<TypeParam>(written.begin(), written.end()));
        const std::size_t header_end = ScratchFolder::read(folder.path("a.npy")).size() - count * sizeof(TypeParam);
        EXPECT_EQ(header_end % 64, 0u);
    }
}

TEST(Npy, ReadsOtherSpellingsOfTheHeader) {
    const ScratchFolder folder;
    const std::string data("\x01\x02", 2);
    for (const std::string& bytes : {npy_bytes("{\"shape\": (2,), \"descr\": \"|u1\", \"fortran_order\": False}", data),
                                     npy_bytes("{'descr':'|u1','fortran_order':True,'shape':(2,)}\n", data, 2)}) {
        const NpyArray array = read_npy(folder.write("a.npy", bytes));
        EXPECT_EQ(std::get<std::vector<std::uint8_t>>(array.values), (std::vector<std::uint8_t>{1, 2}));
    }
}

TEST(Npy, RefusesWhatItCannotHold) {
    const auto header = [](const std::string& type, const std::string& shape, const char* fortran = "False") {
        return "{'descr': '" + type + "', 'fortran_order': " + fortran + ", 'shape': " + shape + ", }\n";
    };
    const std::string four(16, '\0');
    expect_refusal("", "not an .npy file");
    expect_refusal("v 0 0 0\nf 1 2 3\n", "not an .npy file");
    expect_refusal(npy_bytes("", "", 3), "version 3.0");
    expect_refusal(npy_bytes(header("<f4", "(4,)"), four).substr(0, 30), "truncated header");
    expect_refusal(npy_bytes(header("<f4", "(4,)"), four.substr(1)), "4 values announced, 3 found");
    expect_refusal(npy_bytes(header("<f4", "(4,)"), four + "x"), "more data");
    expect_refusal(npy_bytes(header(">f4", "(4,)"), four), "element type >f4");
    expect_refusal(npy_bytes(header("<f2", "(8,)"), four), "element type <f2");
    expect_refusal(npy_bytes(header("<f4", "(2, 2)", "True"), four), "Fortran order");
    expect_refusal(npy_bytes(header("<f4", "(-4,)"), four), "malformed header: shape");
    expect_refusal(npy_bytes(header("<f4", "(4 4)"), four), "malformed header: shape");
    expect_refusal(npy_bytes(header("<f4", "4"), four), "malformed header: no shape");
    expect_refusal(npy_bytes("{'descr': [('x', '<f4')], 'fortran_order': False, 'shape': (4,)}", four),
                   "no simple element type");
    expect_refusal(npy_bytes("{'fortran_order': False, 'shape': (4,)}", four), "no descr");
    expect_refusal(npy_bytes(header("<f4", "(1000000000000,)"), four), "1000000000000 values announced");
    expect_refusal(npy_bytes(header("<f4", "(4294967296, 4294967296)"), four), "too large");
    EXPECT_THROW(read_npy("/nowhere/a.npy"), InputError);
}

}  // namespace
}  // namespace sds_io
