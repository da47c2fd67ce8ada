// Replies that are not as they should be.

#include <endian.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "simdevice/afc_server.h"

namespace sim
{

namespace
{

constexpr size_t kEntireLength = 8; // offsets in the header
constexpr size_t kThisLength = 16;
constexpr size_t kPacket = 24;
constexpr size_t kOperation = 32;

void putNumber(std::string &packet, size_t offset, uint64_t number)
{
    const uint64_t little = htole64(number);
    std::memcpy(packet.data() + offset, &little, sizeof little);
}

// The whole packet as it should have been.
std::string packetBytes(const AfcRequest &request, const AfcReply &reply)
{
    std::string bulk = reply.bulk;
    if (reply.fd >= 0) {
        bulk.resize(reply.fileBytes);
        size_t done = 0;
        while (done < bulk.size()) {
            const ssize_t n =
                read(reply.fd, bulk.data() + done, bulk.size() - done);
            if (n <= 0) {
                break;
            }
            done += static_cast<size_t>(n);
        }
    }
    const size_t fixedEnd = kAfcHeaderSize + reply.fixed.size();
    uint8_t header[kAfcHeaderSize];
    encodeAfcHeader(
        {fixedEnd + bulk.size(), fixedEnd, request.packet, reply.operation},
        header);
    return std::string(header, header + sizeof header) + reply.fixed + bulk;
}

// Byte by byte through the header and a little further, then in pieces.
bool sendSplit(Stream &stream, const std::string &packet)
{
    size_t done = 0;
    while (done < packet.size()) {
        const size_t piece = done < 64 ? 1 : done < 8192 ? 1000 : 1U << 20;
        if (!stream.write(packet.substr(done, piece))) {
            return false;
        }
        done += piece;
        if (done < 8192) {
            std::this_thread::sleep_for(std::chrono::microseconds(200));
            stream.wire().touch();
        }
    }
    return true;
}

void corrupt(Corruption corruption, std::string &packet, uint64_t operation)
{
    switch (corruption) {
    case Corruption::magic:
        packet.replace(0, 8, "BADMAGIC");
        break;
    case Corruption::length:
        putNumber(packet, kEntireLength, 20);
        break;
    case Corruption::huge:
        putNumber(packet, kEntireLength, uint64_t{1} << 40);
        break;
    case Corruption::shortFixed:
        putNumber(packet, kThisLength, 7);
        break;
    case Corruption::packetnum:
        packet[kPacket + 4] = static_cast<char>(packet[kPacket + 4] ^ 0x55);
        break;
    case Corruption::wrongop:
        putNumber(packet, kOperation,
                  operation == kAfcFileRefTellResult ? kAfcFileRefOpenResult
                                                     : kAfcFileRefTellResult);
        break;
    case Corruption::duplicate:
        packet += std::string(packet);
        break;
    case Corruption::reorder:
    case Corruption::splitreply:
    case Corruption::none:
        break;
    }
}

} // namespace

bool sendSpoiled(AfcSession &session, const AfcRequest &request,
                 const AfcReply &reply)
{
    const FaultPlan &plan = session.plan;
    Stream &stream = session.connection.stream;
    std::string packet = packetBytes(request, reply);
    corrupt(plan.corruption, packet, reply.operation);
    if (plan.truncate) {
        packet.resize(std::min<size_t>(packet.size(), *plan.truncate));
        return stream.write(packet) && plan.keepOpen;
    }
    if (plan.corruption == Corruption::reorder) {
        session.heldReply = std::move(packet);
        return true;
    }
    return plan.corruption == Corruption::splitreply ? sendSplit(stream, packet)
                                                     : stream.write(packet);
}

} // namespace sim
