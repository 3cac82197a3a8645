// SecureString: its characters are zeroed before their storage is given up, and null
// pointers are rejected.
//
// The wipes are observed without reading freed memory: a short value lives in the string's
// in-object buffer, so placing the object in storage of the test's own shows what
// destruction and growth leave behind; buffers that are still owned are read directly.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "StringUtils.h"

namespace {

template <typename StrT>
class SecureStringTest : public ::testing::Test {
  protected:
    using SecureT = SecureString<StrT>;
    using CharT = typename StrT::value_type;

    static StrT text(const char* ascii) { return StrT(ascii, ascii + std::strlen(ascii)); }
    static StrT& held(SecureT& secure) { return static_cast<StrT&>(secure); }
    // A buffer's address as a number: only compared, also after the buffer may be gone.
    static std::uintptr_t address(const StrT& s) {
        return reinterpret_cast<std::uintptr_t>(s.data());
    }
    static bool zero(const void* p, size_t first, size_t bytes) {
        const auto* begin = static_cast<const unsigned char*>(p) + first;
        return std::all_of(begin, begin + bytes, [](unsigned char c) { return c == 0; });
    }
};

using StringTypes = ::testing::Types<std::string, std::wstring>;
TYPED_TEST_SUITE(SecureStringTest, StringTypes);

// Twelve bytes of text in the in-object buffer (12 narrow or 3 wide characters): all are
// zero after destruction; after growth the first eight hold the new capacity, the rest zero.
TYPED_TEST(SecureStringTest, DestructionAndGrowthLeaveNoCharactersInTheObject) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    const TypeParam secret = TestFixture::text("ABCDEFGHIJKL").substr(0, 12 / sizeof(CharT));
    for (const bool grow : {false, true}) {
        alignas(SecureT) unsigned char storage[sizeof(SecureT)];
        auto* secure = new (storage) SecureT(secret);
        TypeParam& value = TestFixture::held(*secure);
        const auto* data = reinterpret_cast<const unsigned char*>(value.data());
        if (data < storage || data + 12 > storage + sizeof storage) {
            secure->~SecureT();
            GTEST_SKIP() << "the string library keeps twelve bytes outside the object";
        }
        const size_t offset = static_cast<size_t>(data - storage);
        if (grow) {
            *secure += TypeParam(value.capacity() - value.length(), CharT('z'));
            EXPECT_NE(TestFixture::address(value), reinterpret_cast<std::uintptr_t>(data));
            EXPECT_TRUE(TestFixture::zero(storage, offset + 8, 4)) << "growth left characters";
            secure->~SecureT();
        } else {
            secure->~SecureT();
            EXPECT_TRUE(TestFixture::zero(storage, offset, 12)) << "destruction left characters";
        }
    }
}

// An append that stays below the capacity stays in place; one that reaches it moves to a
// buffer with 256 characters of headroom.
TYPED_TEST(SecureStringTest, AppendGrowsOnlyWhenReachingTheCapacity) {
    using CharT = typename TestFixture::CharT;
    typename TestFixture::SecureT secure(TestFixture::text("01"));
    TypeParam& value = TestFixture::held(secure);
    value.reserve(40);
    const size_t capacity = value.capacity();
    const std::uintptr_t before = TestFixture::address(value);
    secure += TypeParam(capacity - 3, CharT('x'));
    EXPECT_EQ(TestFixture::address(value), before);
    EXPECT_EQ(value.capacity(), capacity);
    secure += TypeParam(1, CharT('y'));
    EXPECT_NE(TestFixture::address(value), before);
    EXPECT_GE(value.capacity(), capacity + 256);
    EXPECT_EQ(value, TestFixture::text("01") + TypeParam(capacity - 3, CharT('x')) + CharT('y'));
}

TYPED_TEST(SecureStringTest, AssignmentResetAndGetAndClearZeroTheOldCharacters) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    SecureT secure(TestFixture::text("abcdefghijklmnopqrstuvwxyz"));
    const std::uintptr_t buffer = TestFixture::address(TestFixture::held(secure));
    secure = SecureT(TestFixture::text("xy"));
    const TypeParam& value = TestFixture::held(secure);
    ASSERT_EQ(TestFixture::address(value), buffer) << "expected to reuse the buffer";
    EXPECT_EQ(value, TestFixture::text("xy"));
    EXPECT_TRUE(TestFixture::zero(value.data(), 3 * sizeof(CharT), 23 * sizeof(CharT)));

    TypeParam plain = TestFixture::text("hello, world, long enough for the heap");
    const std::uintptr_t plainBuffer = TestFixture::address(plain);
    SecureT::Reset(plain);
    EXPECT_TRUE(plain.empty());
    ASSERT_EQ(TestFixture::address(plain), plainBuffer);
    EXPECT_TRUE(TestFixture::zero(plain.data(), 0, 38 * sizeof(CharT)));

    CharT callers[6] = {CharT('a'), CharT('b'), CharT('c'), CharT('d'), CharT(), CharT('z')};
    const SecureT result = SecureT::GetAndClear(callers);
    EXPECT_EQ(TypeParam(result.c_str()), TestFixture::text("abcd"));
    EXPECT_TRUE(TestFixture::zero(callers, 0, 5 * sizeof(CharT)));
    EXPECT_EQ(callers[5], CharT('z')) << "wrote beyond the terminator";
}

TYPED_TEST(SecureStringTest, NullPointersThrowLogicErrorUnlessNothingIsCopied) {
    using SecureT = typename TestFixture::SecureT;
    const typename TestFixture::CharT* null = nullptr;
    EXPECT_THROW(SecureT{null}, std::logic_error);
    EXPECT_THROW(SecureT(null, 1), std::logic_error);
    EXPECT_THROW(SecureT::GetAndClear(null), std::logic_error);
    EXPECT_EQ(SecureT(null, 0).length(), 0U);
}

}  // namespace
