// SecureString: its characters are zeroed before their storage is given up, it copies only
// up to the first NUL where it takes a string or a plain pointer, and it rejects null.
//
// The wipes are observed without reading freed memory: a short value lives in the string's
// in-object buffer, so placing the object in storage of the test's own and inspecting that
// storage shows what destruction and growth leave behind; buffers that are still owned are
// inspected up to their capacity.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "StringUtils.h"

namespace {

// The address a buffer starts at, kept as a number: it is only ever compared, also after the
// buffer it came from may have been released.
template <typename CharT>
std::uintptr_t address(const CharT* buffer) {
    return reinterpret_cast<std::uintptr_t>(buffer);
}

template <typename StrT>
class SecureStringTest : public ::testing::Test {
  protected:
    using SecureT = SecureString<StrT>;
    using CharT = typename StrT::value_type;

    // The ASCII text as a string of this character type; count given, NULs may be inside.
    static StrT text(const char* ascii, size_t count) {
        StrT result;
        for (size_t i = 0; i < count; ++i) {
            result.push_back(static_cast<CharT>(static_cast<unsigned char>(ascii[i])));
        }
        return result;
    }
    static StrT text(const char* ascii) { return text(ascii, std::strlen(ascii)); }

    static StrT& held(SecureT& secure) { return static_cast<StrT&>(secure); }

    // The held value, with room for an append of at least two characters before it reaches
    // the capacity (reserved through the held reference when the library gave none).
    static StrT& roomToAppend(SecureT& secure) {
        StrT& value = held(secure);
        if (value.capacity() < value.length() + 3) {
            value.reserve(value.length() + 8);
        }
        return value;
    }

    // True when the count characters at position first of a still-owned buffer are all zero.
    static bool charactersZero(const CharT* buffer, size_t first, size_t count) {
        for (size_t i = first; i < first + count; ++i) {
            if (buffer[i] != CharT()) {
                return false;
            }
        }
        return true;
    }
};

using StringTypes = ::testing::Types<std::string, std::wstring>;
TYPED_TEST_SUITE(SecureStringTest, StringTypes);

TYPED_TEST(SecureStringTest, DestructionZeroesTheValueBeforeReleasingIt) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    alignas(SecureT) unsigned char storage[sizeof(SecureT)];
    const TypeParam value = TestFixture::text("abc");
    auto* secure = new (storage) SecureT(value.c_str());
    const auto* data = reinterpret_cast<const unsigned char*>(secure->c_str());
    if (data < storage || data >= storage + sizeof storage) {
        secure->~SecureT();
        GTEST_SKIP() << "the string library keeps three characters outside the object";
    }
    const size_t offset = static_cast<size_t>(data - storage);
    const size_t bytes = 3 * sizeof(CharT);  // 3 narrow bytes, 12 wide bytes
    ASSERT_LE(offset + bytes, sizeof storage);
    ASSERT_EQ(std::memcmp(storage + offset, value.c_str(), bytes), 0);

    secure->~SecureT();

    const std::vector<unsigned char> left(storage + offset, storage + offset + bytes);
    EXPECT_EQ(left, std::vector<unsigned char>(bytes, 0)) << "characters survived destruction";
}

TYPED_TEST(SecureStringTest, AssignmentZeroesTheOldCharactersFirst) {
    using SecureT = typename TestFixture::SecureT;
    SecureT secure(TestFixture::text("abcdef"));
    const std::uintptr_t before = address(TestFixture::held(secure).data());
    ASSERT_GE(TestFixture::held(secure).capacity(), 6U);

    secure = SecureT(TestFixture::text("xy"));

    const TypeParam& value = TestFixture::held(secure);
    ASSERT_EQ(address(value.data()), before) << "the assignment was expected to reuse the buffer";
    EXPECT_EQ(value, TestFixture::text("xy"));
    // Characters 2..5 held "cdef": the terminator covers 2, the wipe must have covered 3..5.
    EXPECT_TRUE(TestFixture::charactersZero(value.data(), 2, 4));
}

TYPED_TEST(SecureStringTest, SelfAssignmentKeepsTheValue) {
    using SecureT = typename TestFixture::SecureT;
    SecureT secure(TestFixture::text("secret"));
    SecureT& alias = secure;
    secure = alias;
    EXPECT_EQ(TestFixture::held(secure), TestFixture::text("secret"));
    EXPECT_EQ(secure.length(), 6U);
}

TYPED_TEST(SecureStringTest, NullPointersAreRejectedUnlessNothingIsCopied) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    const CharT* null = nullptr;
    EXPECT_THROW(SecureT{null}, std::logic_error);
    EXPECT_THROW(SecureT(null, 3), std::logic_error);
    EXPECT_THROW(SecureT(null, 1), std::logic_error);
    const SecureT empty(null, 0);
    EXPECT_EQ(empty.length(), 0U);
    EXPECT_EQ(empty.c_str()[0], CharT());
    EXPECT_THROW(SecureT::GetAndClear(null), std::logic_error);
}

TYPED_TEST(SecureStringTest, StringAndPointerSourcesAreCutAtTheFirstNul) {
    using SecureT = typename TestFixture::SecureT;
    const TypeParam withNul = TestFixture::text("ab\0cd", 5);
    ASSERT_EQ(withNul.length(), 5U);

    SecureT fromString(withNul);
    EXPECT_EQ(TestFixture::held(fromString), TestFixture::text("ab"));

    const SecureT fromPointer(withNul.c_str());
    EXPECT_EQ(fromPointer.length(), 2U);

    SecureT counted(withNul.c_str(), 5);
    EXPECT_EQ(counted.length(), 5U);
    EXPECT_EQ(TestFixture::held(counted), withNul) << "the count keeps NULs";

    SecureT copied(counted);
    EXPECT_EQ(TestFixture::held(copied), TestFixture::text("ab"));

    SecureT assigned(TestFixture::text("longer value"));
    assigned = counted;
    EXPECT_EQ(TestFixture::held(assigned), TestFixture::text("ab"));

    SecureT appended(TestFixture::text("x"));
    appended += withNul;
    EXPECT_EQ(TestFixture::held(appended), TestFixture::text("xab"));
}

TYPED_TEST(SecureStringTest, ValueIsAnIndependentCopy) {
    using SecureT = typename TestFixture::SecureT;
    TypeParam source = TestFixture::text("password");
    SecureT secure(source);
    source[0] = source[1];
    EXPECT_EQ(TestFixture::held(secure), TestFixture::text("password"));
    EXPECT_NE(TestFixture::held(secure).data(), source.data());

    SecureT copy(secure);
    TestFixture::held(copy)[0] = TestFixture::text("P")[0];
    EXPECT_EQ(TestFixture::held(secure), TestFixture::text("password"));
    EXPECT_EQ(TestFixture::held(copy), TestFixture::text("Password"));
}

TYPED_TEST(SecureStringTest, GetAndClearCopiesThenZeroesTheCallersText) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    const TypeParam original = TestFixture::text("abcd");
    CharT buffer[6] = {original[0], original[1], original[2], original[3], CharT(), CharT('z')};

    const SecureT result = SecureT::GetAndClear(buffer);

    EXPECT_EQ(result.length(), 4U);
    EXPECT_EQ(TypeParam(result.c_str()), original);
    EXPECT_TRUE(TestFixture::charactersZero(buffer, 0, 5));
    EXPECT_EQ(buffer[5], CharT('z')) << "wrote beyond the terminator";
}

TYPED_TEST(SecureStringTest, ResetZeroesAndEmptiesTheCallersString) {
    using SecureT = typename TestFixture::SecureT;
    TypeParam plain = TestFixture::text("hello");
    const std::uintptr_t before = address(plain.data());

    SecureT::Reset(plain);

    EXPECT_TRUE(plain.empty());
    ASSERT_EQ(address(plain.data()), before) << "the buffer stays with the string";
    ASSERT_GE(plain.capacity(), 5U);
    EXPECT_TRUE(TestFixture::charactersZero(plain.data(), 0, 5));

    TypeParam empty;
    SecureT::Reset(empty);
    EXPECT_TRUE(empty.empty());
}

TYPED_TEST(SecureStringTest, AppendReachingTheCapacityMovesToABufferWithHeadroom) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    // From the in-object buffer and from a heap buffer.
    for (const char* start : {"01", "0123456789012345678901234567890123456789"}) {
        SCOPED_TRACE(start);
        SecureT secure(TestFixture::text(start));
        TypeParam& value = TestFixture::roomToAppend(secure);
        const size_t length = value.length();
        const std::uintptr_t before = address(value.data());
        const TypeParam appended(value.capacity() - length, CharT('x'));  // reaches capacity

        secure += appended;

        EXPECT_NE(address(value.data()), before) << "the growth path was not taken";
        EXPECT_GE(value.capacity(), length + appended.length() + 256);
        EXPECT_EQ(value, TestFixture::text(start) + appended);
        // The appends that use up the headroom stay in place.
        const std::uintptr_t grown = address(value.data());
        secure += TypeParam(200, CharT('y'));
        EXPECT_EQ(address(value.data()), grown);
    }
}

TYPED_TEST(SecureStringTest, AppendStayingBelowTheCapacityStaysInPlace) {
    using SecureT = typename TestFixture::SecureT;
    using CharT = typename TestFixture::CharT;
    for (const char* start : {"01", "0123456789012345678901234567890123456789"}) {
        SCOPED_TRACE(start);
        SecureT secure(TestFixture::text(start));
        TypeParam& value = TestFixture::roomToAppend(secure);
        const size_t capacity = value.capacity();
        const std::uintptr_t before = address(value.data());
        const TypeParam appended(capacity - value.length() - 1, CharT('x'));  // one short

        secure += appended;

        EXPECT_EQ(address(value.data()), before);
        EXPECT_EQ(value.capacity(), capacity);
        EXPECT_EQ(value, TestFixture::text(start) + appended);
    }
}

TEST(SecureStringGrowth, LeavesNoTraceOfTheTextInTheAbandonedInObjectBuffer) {
    using SecureT = SecureString<std::string>;
    const char* const kSecret = "ABCDEFGHIJKL";  // 12 characters: fits the in-object buffer
    alignas(SecureT) unsigned char storage[sizeof(SecureT)];
    auto* secure = new (storage) SecureT(kSecret);
    std::string& value = static_cast<std::string&>(*secure);
    const std::uintptr_t before = address(value.data());
    if (before < address(storage) || before >= address(storage + sizeof storage)) {
        secure->~SecureT();
        GTEST_SKIP() << "the string library keeps twelve characters outside the object";
    }
    const std::string appended(value.capacity() - value.length(), 'z');

    *secure += appended;  // exactly reaches the capacity: moves to the heap

    ASSERT_NE(address(value.data()), before);
    EXPECT_EQ(value, kSecret + appended);
    // The object's own bytes now hold the heap pointer, length and capacity; no four
    // consecutive characters of the old text may remain among them.
    const std::string objectBytes(reinterpret_cast<const char*>(storage), sizeof storage);
    const std::string secret(kSecret);
    for (size_t i = 0; i + 4 <= secret.size(); ++i) {
        EXPECT_EQ(objectBytes.find(secret.substr(i, 4)), std::string::npos)
            << secret.substr(i, 4) << " survived in the abandoned buffer";
    }
    secure->~SecureT();
}

TEST(SecureStringWide, WipingThreeCharactersZeroesTwelveBytes) {
    static_assert(sizeof(wchar_t) == 4, "wchar_t is four bytes on this platform");
    std::wstring plain = L"abc";
    const std::uintptr_t before = address(plain.data());
    SecureString<std::wstring>::Reset(plain);
    ASSERT_EQ(address(plain.data()), before) << "the buffer stays with the string";
    const auto* bytes = reinterpret_cast<const unsigned char*>(plain.data());
    EXPECT_EQ(std::vector<unsigned char>(bytes, bytes + 12), std::vector<unsigned char>(12, 0));
}

TEST(SecureStringTypes, ExposeTheirCharacterPointerType) {
    static_assert(std::is_same<SecureString<std::string>::const_pointerT, const char*>::value,
                  "narrow");
    static_assert(std::is_same<SecureString<std::wstring>::const_pointerT, const wchar_t*>::value,
                  "wide");
    SecureString<std::string> secure("abc");
    std::string& held = secure;
    held += "d";
    EXPECT_STREQ(secure.c_str(), "abcd") << "operator StrT& refers to the held value";
}

}  // namespace
