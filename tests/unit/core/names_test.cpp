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

TEST(Names, OneCanonicalForm)
{
    const std::pair<const char *, const char *> names[] = {
        {"AC/DC", "AC:DC"},
        {"", ""},
        {"cafe\u0301", "caf\u00e9"},
        {"caf\u00e9", "caf\u00e9"},
        {"\u1112\u1161\u11ab", "\ud55c"}, // Hangul
        {"a\u0302\u0301", "\u1ea5"},      // two marks
        {"a\u0323\u0302", "\u1ead"},      // below, above
        {"\U0001F600e\u0301", "\U0001F600\u00e9"}};
    for (const auto &[name, form] : names) {
        EXPECT_EQ(canonical(name), form);
    }
    EXPECT_EQ(getUTF8MACName(nullptr, nullptr), -1);
    for (const char *name : {"\xff", "a\xc3", "\xed\xa0\x80", "\xc0\xaf",
                             "\xf4\x90\x80\x80", "ok\x80"}) {
        EXPECT_EQ(canonical(name, -1), name); // invalid: as it is
    }
    EXPECT_EQ(replaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(replaceAll("abcabc", "abc", ""), "");
    EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(chkInvalidString("a:b/c"), "a:b:c");
    EXPECT_EQ(chkInvalidString(nullptr), "");
}

TEST(Names, ComposedCharactersAndSomeRangesAreLeftAlone)
{
    const std::pair<const char *, const char *> texts[] = {
        // Excluded from composition, and longer when taken apart.
        {"\u0958", "\u0958"},
        {"\u0915\u093c", "\u0915\u093c"},
        {"\u2126\uf900\U0002f800", "\u2126\uf900\U0002f800"},
        {"=\u0338", "=\u0338"},           // not U+2260
        {"\u2190\u0338", "\u2190\u0338"}, // not U+219A
        // A mark of the same class in between blocks.
        {"e\u0308\u0301", "\u00eb\u0301"},
        {"\u0301e", "\u0301e"}};
    for (const auto &[text, form] : texts) {
        EXPECT_EQ(composed(text), form);
    }
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
    char out[32] = {};
    const struct {
        int charset;
        std::string in;
        const char *result;
    } cases[] = {{3, "caf\u00e9", "cafe\u0301"},
                 {255, "\xc7\xd1", "\u1112\u1161\u11ab"}, // Korean
                 {99, "\xe9", "e\u0301"},                 // Latin
                 {2, std::string("\0A\0\xe9", 4), "Ae\u0301"}};
    for (const auto &each : cases) {
        std::string in = each.in;
        memset(out, 0, sizeof(out));
        EXPECT_EQ(unicode_to_utf8(each.charset, in.data(),
                                  static_cast<int>(in.size()), out,
                                  sizeof(out)),
                  0);
        EXPECT_STREQ(out, each.result);
    }
    char in[] = "caf\u00e9";
    EXPECT_EQ(unicode_to_utf8(3, in, 5, out, 5), -1); // grows: no room
    char broken[] = "\xff\xff";
    EXPECT_EQ(unicode_to_utf8(3, broken, 2, out, sizeof(out)), -1);
    char parts[] = "e\u0301A";
    EXPECT_EQ(utf8_to_unicode(parts, 4, out, sizeof(out)), 0);
    EXPECT_EQ(std::string(out, 4), std::string("\xe9\0A\0", 4));
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
