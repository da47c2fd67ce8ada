// Bytes from outside, without a device: AFC replies, lists, usbmux messages and
// property lists.
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "device/afc_lists.h"
#include "device/afc_replies.h"
#include "device/app_list.h"
#include "device/libiusb.h"
#include "device/pair_record.h"
#include "device/plist_stream.h"
#include "device/usbmux_packet.h"

using namespace iusb;
using std::string;
using namespace std::string_literals;

static string reply(uint64_t packet, AfcOp op, const string &fixed,
                    const string &bulk = "")
{
    string out;
    afcAppendRequest(out, op, packet, fixed, bulk.size());
    return out + bulk;
}

static string status(uint64_t packet, uint64_t value)
{
    return reply(packet, AfcOp::Status, afcNumbers({value}));
}

static string data(uint64_t packet, const string &bytes)
{
    return reply(packet, AfcOp::Data, "", bytes);
}

static bool feed(AfcReplies &replies, const string &bytes)
{
    return replies.feed(bytes.data(), bytes.size());
}

TEST(AfcPacket, IsWhatTheWireSays)
{
    string out;
    afcAppendRequest(out, AfcOp::FileRefWrite, 7, afcNumbers({2}), 3);
    EXPECT_EQ(out, "CFA6LPAA"
                   "\x33\0\0\0\0\0\0\0\x30\0\0\0\0\0\0\0"
                   "\x07\0\0\0\0\0\0\0\x10\0\0\0\0\0\0\0"
                   "\x02\0\0\0\0\0\0\0"s);
    EXPECT_EQ(afcOpenRequest(1, "/DCIM/a.txt"),
              "\x01\0\0\0\0\0\0\0/DCIM/a.txt\0"s);
}

TEST(AfcReplies, AnyOrderAndAnyPieces)
{
    string payload(300'000, 'p');
    for (size_t piece : {1U, 7U, 39U, 41U, 65536U, 1'000'000U}) {
        AfcReplies replies;
        uint64_t info = replies.expect(AfcOp::GetFileInfo, 100);
        uint64_t given_up = replies.expect(AfcOp::FileRefRead, 400'000);
        uint64_t read = replies.expect(AfcOp::FileRefRead, 400'000);
        uint64_t open = replies.expect(AfcOp::FileRefOpen, 0);
        replies.abandon(given_up);
        string bytes = data(read, payload) +
                       reply(open, AfcOp::FileRefOpenResult, afcNumbers({5})) +
                       data(given_up, payload) + status(info, 8);
        for (size_t at = 0; at < bytes.size(); at += piece)
            ASSERT_TRUE(feed(replies, bytes.substr(at, piece)));
        EXPECT_EQ(replies.outstanding(), 0U);
        EXPECT_FALSE(replies.arrived(given_up));
        EXPECT_EQ(replies.take(info).code, LIBIUSB_ERROR_AFC_OBJECT_NOT_FOUND);
        EXPECT_EQ(replies.take(open).value, 5U);
        EXPECT_EQ(replies.take(read).text(), payload);
        EXPECT_FALSE(replies.arrived(read));
    }
}

TEST(AfcReplies, LargePayloadsAreReceivedInPlace)
{
    AfcReplies replies;
    string payload(200'000, 'q');
    uint64_t packet = replies.expect(AfcOp::FileRefRead, payload.size());
    string bytes = data(packet, payload);
    EXPECT_EQ(replies.direct().iov_len, 0U);
    ASSERT_TRUE(feed(replies, bytes.substr(0, 1040)));
    iovec space = replies.direct();
    ASSERT_EQ(space.iov_len, payload.size() - 1000);
    memcpy(space.iov_base, bytes.data() + 1040, space.iov_len);
    ASSERT_TRUE(replies.placed(space.iov_len));
    EXPECT_EQ(replies.take(packet).text(), payload);
}

TEST(AfcReplies, NonsenseIsOutOfStep)
{
    string too_long = data(1, string(101, 'x'));
    string header = data(1, "");
    auto with = [&](size_t at, const string &bytes) {
        return string(header).replace(at, bytes.size(), bytes);
    };
    const string cases[] = {
        too_long,
        with(0, "X"),                                // magic
        with(8, "\x27"s),                            // entire < header
        with(8, "\xff\xff\xff\xff\xff\xff\xff\xff"), // huge
        with(16, "\x27"s),                           // fixed < header
        with(16, "\x29"s),                           // fixed > entire
        data(2, ""),                                 // a number nobody has
        data(0, ""),
        status(1, 0), // success, but nothing read
        reply(1, AfcOp::Status, ""),
        reply(1, AfcOp::FileRefOpenResult, afcNumbers({1})),
        reply(1, AfcOp::ReadDir, ""),
        data(1, "") + data(1, ""), // the same again
    };
    for (const string &bytes : cases) {
        AfcReplies replies;
        replies.expect(AfcOp::FileRefRead, 100);
        EXPECT_FALSE(feed(replies, bytes)) << testing::PrintToString(bytes);
    }
    AfcReplies replies;
    uint64_t open = replies.expect(AfcOp::FileRefOpen, 0);
    EXPECT_FALSE(
        feed(replies, reply(open, AfcOp::FileRefOpenResult, afcNumbers({0}))));
}

TEST(AfcLists, NamesAndInformation)
{
    EXPECT_EQ(afcNames(".\0..\0a\0\0b/c\0.hidden\0last"s),
              (std::vector<std::string_view>{"a", ".hidden", "last"}));
    EXPECT_TRUE(afcNames("").empty());
    auto info = afcFileInfo("st_mtime\0"
                            "5\0st_ifmt\0S_IFREG\0other\0?\0"
                            "st_size\0"
                            "18446744073709551615\0"s);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->size, UINT64_MAX);
    EXPECT_EQ(info->birth_time, 5);
    EXPECT_TRUE(afcFileInfo("st_ifmt\0S_IFDIR"s));
    for (const string &bad : {""s, "st_ifmt"s, "st_ifmt\0S_IFREG\0"s,
                              "st_size\0"
                              "1\0"s,
                              "st_ifmt\0S_IFREG\0st_size\0-1\0"s,
                              "st_ifmt\0S_IFREG\0st_size\0"
                              "18446744073709551616\0"s,
                              "st_ifmt\0S_IFREG\0st_size\0"
                              "1x\0"s,
                              "st_ifmt\0S_IFREG\0st_size\0"
                              "1\0st_mtime\0soon\0"s})
        EXPECT_FALSE(afcFileInfo(bad)) << testing::PrintToString(bad);
    auto device = afcDeviceInfo("FSTotalBytes\0"
                                "10\0FSFreeBytes\0"
                                "4\0"s);
    ASSERT_TRUE(device);
    EXPECT_EQ(device->free, 4U);
    EXPECT_FALSE(afcDeviceInfo("FSTotalBytes\0"
                               "10\0FSFreeBytes\0lots\0"s));
}

TEST(Usbmux, Messages)
{
    string head = usbmuxEncode(usbmuxRequest("ListDevices"), 9).substr(0, 16);
    ASSERT_TRUE(usbmuxPayloadSize(head));
    EXPECT_FALSE(usbmuxPayloadSize(head.substr(0, 15)));
    EXPECT_FALSE(usbmuxPayloadSize(string(head).replace(4, 1, "\0"s)));
    EXPECT_FALSE(usbmuxPayloadSize(string(head).replace(0, 4, "\x10\0\0\0"s)));
    EXPECT_FALSE(
        usbmuxPayloadSize(string(head).replace(0, 4, "\xff\xff\xff\xff"s)));
    auto entry = [](const string &keys) {
        return "<dict><key>Properties</key><dict>" + keys + "</dict></dict>";
    };
    const string id = "<key>DeviceID</key><integer>3</integer>";
    const string usb = "<key>ConnectionType</key><string>USB</string>";
    const string serial =
        "<key>SerialNumber</key><string>00008110000A1C2E3F40801E</string>";
    string xml =
        "<plist><dict><key>DeviceList</key><array>" +
        entry(id + usb + serial +
              "<key>LocationID</key><integer>-1</integer>") +
        entry(id + usb) + entry(id + serial) + entry(usb + serial) +
        entry("<key>DeviceID</key><integer>0</integer>" + usb + serial) +
        "<string>?</string>" +
        entry(id + serial +
              "<key>ConnectionType</key><string>Network</string>"
              "<key>LocationID</key><integer>5</integer>") +
        "</array></dict></plist>";
    auto devices = usbmuxDevices(parsePlist(xml));
    ASSERT_TRUE(devices);
    ASSERT_EQ(devices->size(), 2U);
    EXPECT_EQ(devices->at(0).udid, "00008110-000A1C2E3F40801E");
    EXPECT_EQ(devices->at(0).location_id, 0xFFFFFFFFU);
    EXPECT_TRUE(devices->at(1).network);
    EXPECT_EQ(devices->at(1).location_id, 0U);
    EXPECT_FALSE(usbmuxDevices(parsePlist("<plist><dict/></plist>")));
}

TEST(PropertyLists, DeepNestingIsRefused)
{
    auto nested = [](int depth) {
        string xml = "<plist>";
        for (int i = 0; i < depth; i++)
            xml += "<array>";
        for (int i = 0; i < depth; i++)
            xml += "</array>";
        return xml + "</plist>";
    };
    EXPECT_TRUE(parsePlist(nested(20)));
    EXPECT_FALSE(parsePlist(nested(1'000'000)));
    EXPECT_FALSE(parsePlist(""));
    EXPECT_FALSE(parsePlist("hello"));
    EXPECT_FALSE(parsePlist("<"));
    // Tags that only libplist, or only this layer, would see.
    auto hidden = [](const string &disguise) {
        string xml = "<plist>";
        for (int i = 0; i < 1000; i++)
            xml += "<array>" + disguise;
        for (int i = 0; i < 1000; i++)
            xml += "</array>";
        return xml + "</plist>";
    };
    for (const char *disguise :
         {"<!--</array>-->", "<![CDATA[</array>]]>", "<string a=\"></array>\">",
          "</dict>", "</plist>", "<?x </array>?>", "<string '</array>'/>",
          "<!DOCTYPE a [</array>]>", "<x </array>", ""})
        EXPECT_FALSE(parsePlist(hidden(disguise))) << disguise;
    string tags;
    for (int i = 0; i < 1'000'000; i++)
        tags += "<dict ";
    EXPECT_FALSE(parsePlist(tags + "/>"));
    EXPECT_TRUE(parsePlist(
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC "
        "\"-//Apple//DTD PLIST 1.0//EN\" \"http://x/y.dtd\">\n"
        "<plist version=\"1.0\">\n<dict>\n<key>a &lt;</key>\n<array/>\n"
        "</dict>\n</plist>\n"));
    // Binary: object i holds object i + 1; offsets of three bytes.
    auto binary = [](int depth) {
        string objects = "bplist00", table;
        auto number = [](uint64_t value, int size) {
            string out;
            for (int shift = size * 8 - 8; shift >= 0; shift -= 8)
                out.push_back(static_cast<char>(value >> shift));
            return out;
        };
        for (int i = 0; i < depth; i++) {
            table += number(objects.size(), 3);
            objects += i + 1 < depth
                           ? "\xA1" + number(static_cast<uint64_t>(i) + 1, 3)
                           : "\xA0"s;
        }
        auto count = static_cast<uint64_t>(depth);
        return objects + table + string(6, '\0') + "\3\3" + number(count, 8) +
               number(0, 8) + number(objects.size(), 8);
    };
    EXPECT_TRUE(parsePlist(binary(10)));
    EXPECT_FALSE(parsePlist(binary(500'000)));
    // Any damage to a good one ends in a list or in nothing.
    string good = binary(10);
    std::mt19937 random(1);
    for (int i = 0; i < 20'000; i++) {
        string bad = good;
        for (int k = 0; k < 3; k++)
            bad[random() % bad.size()] = static_cast<char>(random());
        parsePlist(bad);
    }
}

TEST(PropertyLists, MembersOfTheRightTypeOnly)
{
    Plist plist = parsePlist(
        "<plist><dict><key>s</key><string>text</string><key>t</key><true/>"
        "<key>n</key><integer>7</integer><key>y</key><string>YES</string>"
        "<key>d</key><data>AAEC</data></dict></plist>");
    EXPECT_EQ(getString(plist.get(), "s"), "text");
    EXPECT_EQ(getString(plist.get(), "n"), std::nullopt);
    EXPECT_EQ(getUint(plist.get(), "n"), 7U);
    EXPECT_EQ(getUint(plist.get(), "missing"), std::nullopt);
    EXPECT_EQ(getData(plist.get(), "d"), "\0\1\2"s);
    EXPECT_TRUE(getTruth(plist.get(), "t") && getTruth(plist.get(), "y") &&
                getTruth(plist.get(), "n"));
    EXPECT_FALSE(getTruth(plist.get(), "s") || getTruth(nullptr, "t"));
    EXPECT_EQ(plistMessageSize("\0\0\1\x16"s), 0x116U);
    EXPECT_FALSE(plistMessageSize("\xff\xff\xff\xff"s));
    EXPECT_FALSE(plistMessageSize("\0\0\0\0"s));
    EXPECT_FALSE(parsePairRecord("<plist><dict/></plist>"));
    auto record = parsePairRecord(
        "<plist><dict><key>HostID</key><string>H</string></dict></plist>");
    ASSERT_TRUE(record);
    EXPECT_EQ(record->certificate, "");
}

TEST(AppList, Messages)
{
    auto take = [](const string &body, std::vector<App> &apps, bool &complete) {
        return takeApps(parsePlist("<plist><dict>" + body + "</dict></plist>"),
                        apps, complete);
    };
    const string browsing =
        "<key>Status</key><string>BrowsingApplications</string>";
    const string shares = "<key>UIFileSharingEnabled</key>";
    std::vector<App> apps;
    bool complete = false;
    EXPECT_EQ(
        take(browsing +
                 "<key>CurrentList</key><array>"
                 "<dict><key>CFBundleIdentifier</key><string>a</string>" +
                 shares +
                 "<true/></dict>"
                 "<dict><key>CFBundleIdentifier</key><string>b</string>"
                 "<key>CFBundleName</key><string>Bee</string>" +
                 shares +
                 "<string>YES</string></dict>"
                 "<dict><key>CFBundleIdentifier</key><string>c</string></dict>"
                 "<dict>" +
                 shares + "<true/></dict><string>x</string></array>",
             apps, complete),
        0);
    EXPECT_FALSE(complete);
    ASSERT_EQ(apps.size(), 2U);
    EXPECT_EQ(apps[0].name, "a");
    EXPECT_EQ(apps[1].name, "Bee");
    EXPECT_EQ(take(browsing, apps, complete), 0);
    EXPECT_EQ(
        take("<key>Status</key><string>Complete</string>", apps, complete), 0);
    EXPECT_TRUE(complete);
    EXPECT_EQ(take("<key>Error</key><string>E</string>", apps, complete),
              LIBIUSB_ERROR_INSTPROXY);
    EXPECT_EQ(take("", apps, complete), LIBIUSB_ERROR_PROTOCOL);
}
