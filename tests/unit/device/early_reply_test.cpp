// A device that confirms data before it took it: the call must not leave the
// caller's buffer waiting to be sent.
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "device/afc_file.h"

TEST(EarlyReply, CostsTheConnection)
{
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    iusb::Fd device(ends[1]);
    iusb::Stream stream;
    stream.fd = iusb::Fd(ends[0]);
    libiusb_context context;
    libiusb_afc afc;
    afc.context = &context;
    iusb::AfcFile file;
    file.owner = &afc;
    file.connection = iusb::afcOver(std::move(stream), context.settings);
    file.handle = 1;
    file.mode = LIBIUSB_MODE_UPDATE;
    // Far more than the socket takes while nobody reads it.
    std::vector<char> buffer(4 << 20, 'x');
    std::string replies;
    for (uint64_t packet = 1; packet <= buffer.size() / iusb::kAfcChunk;
         packet++) {
        iusb::afcAppendRequest(replies, iusb::AfcOp::Status, packet,
                               iusb::afcNumbers({0}), 0);
    }
    ASSERT_EQ(::write(device.get(), replies.data(), replies.size()),
              static_cast<ssize_t>(replies.size()));
    uint32_t count = 0;
    EXPECT_EQ(iusb::writeAt(file, buffer.data(),
                            static_cast<uint32_t>(buffer.size()), 0, count),
              LIBIUSB_ERROR_LOST_CONNECTION);
    EXPECT_FALSE(file.connection->alive);
    EXPECT_TRUE(file.connection->out.empty());
}
