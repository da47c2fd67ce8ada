#include <utf8proc.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tarnifs/names/composition.h"
#include "tarnifs/names/device_path.h"
#include "tarnifs/names/encoding.h"

namespace
{

// The catalogue's form of a name, through a buffer with guards around the room.
std::string canonical(const std::string &name, int expected = 0)
{
    std::vector<char> buffer(name.size() + 8, '\0');
    EXPECT_EQ(getUTF8MACName(name.c_str(), buffer.data()), expected);
    for (size_t i = name.size(); i < buffer.size(); ++i) {
        EXPECT_EQ(buffer[i], '\0') << "written beyond the name";
    }
    return buffer.data();
}

std::string composed(const std::string &text)
{
    std::string out;
    EXPECT_TRUE(composeUtf8(text, out)) << text;
    return out;
}

TEST(Names, ReplaceAll)
{
    EXPECT_EQ(replaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(replaceAll("a/b//c", "/", ":"), "a:b::c");
    EXPECT_EQ(replaceAll("abcabc", "abc", ""), "");
    EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(chkInvalidString("a:b/c"), "a:b:c");
    EXPECT_EQ(chkInvalidString(nullptr), "");
}

TEST(Names, OneCanonicalForm)
{
    EXPECT_EQ(canonical("AC/DC"), "AC:DC");
    EXPECT_EQ(canonical("plain"), "plain");
    EXPECT_EQ(canonical(""), "");
    EXPECT_EQ(canonical("cafe\u0301"), "caf\u00e9");
    EXPECT_EQ(canonical("caf\u00e9"), "caf\u00e9");
    EXPECT_EQ(canonical("\u1112\u1161\u11ab"), "\ud55c"); // Hangul
    EXPECT_EQ(canonical("a\u0302\u0301"), "\u1ea5");      // two marks
    EXPECT_EQ(canonical("a\u0323\u0302"), "\u1ead");      // below, above
    EXPECT_EQ(canonical("\U0001F600e\u0301"), "\U0001F600\u00e9");
    EXPECT_EQ(getUTF8MACName(nullptr, nullptr), -1);
}

TEST(Names, InvalidTextStaysAsItIs)
{
    for (const char *name : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\xaf",
                             "\xf4\x90\x80\x80", "ok\x80"}) {
        EXPECT_EQ(canonical(name, -1), name);
    }
}

TEST(Names, ComposedCharactersAndSomeRangesAreLeftAlone)
{
    // Excluded from composition, and longer when taken apart.
    EXPECT_EQ(composed("\u0958"), "\u0958");
    EXPECT_EQ(composed("\u0915\u093c"), "\u0915\u093c");
    EXPECT_EQ(composed("\u2126\uf900\U0002f800"), "\u2126\uf900\U0002f800");
    EXPECT_EQ(composed("=\u0338"), "=\u0338");           // not U+2260
    EXPECT_EQ(composed("\u2190\u0338"), "\u2190\u0338"); // not U+219A
    // A mark of the same class in between blocks.
    EXPECT_EQ(composed("e\u0308\u0301"), "\u00eb\u0301");
    EXPECT_EQ(composed("\u0301e"), "\u0301e");
}

TEST(Names, ComposingUndoesDecomposingAndNeverLengthens)
{
    for (utf8proc_int32_t c = 0x80; c <= 0x10FFFF; ++c) {
        if (c >= 0xD800 && c <= 0xDFFF) {
            continue;
        }
        utf8proc_uint8_t bytes[4];
        const auto size = static_cast<size_t>(utf8proc_encode_char(c, bytes));
        const std::string text(reinterpret_cast<char *>(bytes), size);
        std::string parts;
        ASSERT_TRUE(decomposeUtf8(text, parts));
        const std::string back = composed(parts);
        ASSERT_LE(back.size(), parts.size()) << c;
        // What decomposes into two and is no exclusion comes back.
        std::string usual;
        if (utf8proc_uint8_t *nfc = utf8proc_NFC(
                reinterpret_cast<const utf8proc_uint8_t *>(text.c_str()))) {
            usual = reinterpret_cast<char *>(nfc);
            free(nfc);
        }
        if (usual == text) {
            ASSERT_EQ(back, text) << c;
        }
        ASSERT_EQ(composed(text), text) << c;
    }
}

TEST(Names, Converters)
{
    char in[] = "caf\u00e9";
    char out[32] = {};
    EXPECT_EQ(unicode_to_utf8(3, in, 5, out, sizeof(out)), 0);
    EXPECT_STREQ(out, "cafe\u0301");
    EXPECT_EQ(unicode_to_utf8(3, in, 5, out, 5), -1); // grows: no room
    char korean[] = "\xc7\xd1";
    memset(out, 0, sizeof(out));
    EXPECT_EQ(unicode_to_utf8(255, korean, 2, out, sizeof(out)), 0);
    EXPECT_STREQ(out, "\u1112\u1161\u11ab");
    char latin[] = "\xe9";
    memset(out, 0, sizeof(out));
    EXPECT_EQ(unicode_to_utf8(99, latin, 1, out, sizeof(out)), 0);
    EXPECT_STREQ(out, "e\u0301");
    char wide[] = {'\x00', 'A', '\x00', '\xe9'};
    memset(out, 0, sizeof(out));
    EXPECT_EQ(unicode_to_utf8(2, wide, 4, out, sizeof(out)), 0);
    EXPECT_STREQ(out, "Ae\u0301");
    char broken[] = "\xff\xff";
    EXPECT_EQ(unicode_to_utf8(3, broken, 2, out, sizeof(out)), -1);

    char parts[] = "e\u0301A";
    const char expected[] = {'\xe9', '\0', 'A', '\0'};
    EXPECT_EQ(utf8_to_unicode(parts, 4, out, sizeof(out)), 0);
    EXPECT_EQ(memcmp(out, expected, 4), 0);
    EXPECT_EQ(utf8_to_unicode(parts, 4, out, 3), -1);
    EXPECT_EQ(utf8_to_unicode(broken, 2, out, sizeof(out)), -1);
    EXPECT_EQ(utf8_to_utf8mac(nullptr, 1, out, 1), -1);
    EXPECT_STREQ(GetStringfromCode(1), "UCS-2LE");
    EXPECT_STREQ(GetStringfromCode(2), "UCS-2BE");
}

TEST(Names, DevicePaths)
{
    EXPECT_EQ(StorageDevicePath("/Storage"), "/general_storage");
    EXPECT_EQ(StorageDevicePath("/Storage/a/b"), "/general_storage/a/b");
    EXPECT_EQ(StorageDevicePath("/Storagex"), "/general_storagex");
    EXPECT_EQ(AppDevicePath("/Apps/Notes"), "/Documents");
    EXPECT_EQ(AppDevicePath("/Apps/Notes/a/b.txt"), "/Documents/a/b.txt");
    EXPECT_EQ(AppFolderName("/Apps/Notes/a"), "Notes");
    EXPECT_EQ(AppFolderName("/Apps"), "");
    EXPECT_EQ(AppFolderName("/Apps/" + std::string(2000, 'n')).size(), 511U);
    EXPECT_EQ(PathDepth("/Apps/Notes/a"), 3U);
    EXPECT_EQ(ParentFolderText("/a/b"), "/a");
    EXPECT_EQ(ParentFolderText("/a"), "/");
    EXPECT_EQ(ChildPath("/", "a"), "/a");
    EXPECT_EQ(ChildPath("/a", "b"), "/a/b");
}

} // namespace
