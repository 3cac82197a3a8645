// SPDX-License-Identifier: Apache-2.0
// SecureString, narrow and wide: its characters are zeroed before their storage is given up,
// and null pointers are rejected. (That every operation keeps the right text is checked
// against a plain string by fuzz_platform.)
//
// The wipes are observed without reading freed memory: a short value lives in the string's
// in-object buffer, so placing the object in storage of the test's own shows what
// destruction and growth leave behind; buffers that are still owned are read directly.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>

#include "StringUtils.h"

namespace {

// A buffer's address as a number (only compared, also after the buffer may be gone), and
// whether n characters or bytes from p are all zero (also past a string's end).
template <typename StrT>
struct SecureStringTest : ::testing::Test {
    static std::uintptr_t address(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
    template <typename T>
    static bool zero(const T* p, size_t n) {
        return std::all_of(p, p + n, [](T c) { return !c; });
    }
};
using StringTypes = ::testing::Types<std::string, std::wstring>;
TYPED_TEST_SUITE(SecureStringTest, StringTypes);

// Twelve bytes of text in the in-object buffer: all are zero after destruction; after growth
// to exactly the capacity (a buffer with 256 characters of headroom) the first eight hold the
// new capacity and the other four must be zero.
TYPED_TEST(SecureStringTest, NoCharactersRemainInTheObjectAfterDestructionOrGrowth) {
    using SecureT = SecureString<TypeParam>;
    using CharT = typename TypeParam::value_type;
    for (const bool grow : {false, true}) {
        alignas(SecureT) unsigned char storage[sizeof(SecureT)];
        auto* secure = new (storage) SecureT(TypeParam(12 / sizeof(CharT), CharT('A')));
        TypeParam& value = *secure;
        // Where the characters sit in the object, if they do.
        const auto at = reinterpret_cast<unsigned char*>(value.data()) - storage;
        if (at < 0 || at + 12 > std::ptrdiff_t{sizeof storage}) {
            secure->~SecureT();
            GTEST_SKIP() << "the string library keeps twelve bytes outside the object";
        }
        if (grow) {  // to exactly the capacity, which moves the value out of the object
            *secure += TypeParam(value.capacity() - value.length(), CharT('z'));
            EXPECT_GE(value.capacity(), value.length() + 256) << "moved without its headroom";
        }
        secure->~SecureT();
        EXPECT_TRUE(TestFixture::zero(storage + at + (grow ? 8 : 0), grow ? 4 : 12))
            << (grow ? "growth" : "destruction") << " left characters";
    }
}

// Assignment, Reset and GetAndClear zero the characters they drop.
TYPED_TEST(SecureStringTest, DiscardedCharactersAreZeroed) {
    using SecureT = SecureString<TypeParam>;
    using CharT = typename TypeParam::value_type;
    SecureT secure(TypeParam(26, CharT('a')));
    const std::uintptr_t buffer = TestFixture::address(static_cast<TypeParam&>(secure).data());
    secure = SecureT(TypeParam(2, CharT('x')));
    const TypeParam& value = secure;
    ASSERT_EQ(TestFixture::address(value.data()), buffer) << "expected to reuse the buffer";
    EXPECT_TRUE(value == TypeParam(2, CharT('x')) && TestFixture::zero(value.data() + 3, 23));

    TypeParam plain(38, CharT('p'));
    const std::uintptr_t plainBuffer = TestFixture::address(plain.data());
    SecureT::Reset(plain);
    ASSERT_EQ(TestFixture::address(plain.data()), plainBuffer);
    EXPECT_TRUE(plain.empty() && TestFixture::zero(plain.data(), 38));

    CharT callers[6] = {CharT('c'), CharT('c'), CharT('c'), CharT('c'), CharT(), CharT('z')};
    EXPECT_EQ(TypeParam(SecureT::GetAndClear(callers).c_str()), TypeParam(4, CharT('c')));
    EXPECT_TRUE(TestFixture::zero(callers, 5) && callers[5] == CharT('z'));
}

// Null pointers throw, unless nothing is to be copied.
TYPED_TEST(SecureStringTest, NullPointersAreRefusedUnlessNothingIsCopied) {
    using SecureT = SecureString<TypeParam>;
    using CharT = typename TypeParam::value_type;
    const CharT* null = nullptr;
    EXPECT_THROW(SecureT{null}, std::logic_error);
    EXPECT_THROW(SecureT(null, 1), std::logic_error);
    EXPECT_THROW(SecureT::GetAndClear(null), std::logic_error);
    EXPECT_EQ(SecureT(null, 0).length(), 0U);
}

}  // namespace
