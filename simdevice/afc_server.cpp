#include "simdevice/afc_server.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace sim
{

namespace
{

constexpr size_t kPiece = size_t{256} * 1024;
constexpr auto kReorderPatience = std::chrono::milliseconds(200);

struct Operation {
    uint64_t number;
    const char *name;
    size_t fixedSize; // the least that the fixed part must have
    AfcReply (*handler)(AfcSession &, AfcRequest &);
};

// Known numbers without a handler have payloads that nobody has described.
constexpr Operation kOperations[] = {
    {kAfcReadDir, "ReadDir", 0, afcReadDir},
    {kAfcReadFile, "ReadFile", 0, afcReadFile},
    {0x05, "WriteFile", 0, nullptr},
    {0x06, "WritePart", 0, nullptr},
    {kAfcTruncateFile, "TruncateFile", 8, afcTruncate},
    {kAfcRemovePath, "RemovePath", 0, afcRemovePath},
    {kAfcMakeDir, "MakeDir", 0, afcMakeDir},
    {kAfcGetFileInfo, "GetFileInfo", 0, afcGetFileInfo},
    {kAfcGetDeviceInfo, "GetDeviceInfo", 0, afcGetDeviceInfo},
    {0x0C, "WriteFileAtomic", 0, nullptr},
    {kAfcFileRefOpen, "FileRefOpen", 8, afcOpen},
    {kAfcFileRefRead, "FileRefRead", 16, afcRead},
    {kAfcFileRefWrite, "FileRefWrite", 8, afcWrite},
    {kAfcFileRefSeek, "FileRefSeek", 24, afcSeek},
    {kAfcFileRefTell, "FileRefTell", 8, afcTell},
    {kAfcFileRefClose, "FileRefClose", 8, afcClose},
    {kAfcFileRefSetFileSize, "FileRefSetFileSize", 16, afcSetFileSize},
    {kAfcGetConnectionInfo, "GetConnectionInfo", 0, afcGetConnectionInfo},
    {0x17, "SetConnectionOptions", 0, nullptr},
    {kAfcRenamePath, "RenamePath", 2, afcRename},
    {kAfcSetFsBlockSize, "SetFSBlockSize", 8, afcSetBlockSize},
    {kAfcSetSocketBlockSize, "SetSocketBlockSize", 8, afcSetBlockSize},
    {kAfcFileRefLock, "FileRefLock", 16, afcLock},
    {kAfcMakeLink, "MakeLink", 8, afcMakeLink},
    {kAfcGetFileHash, "GetFileHash", 0, afcGetFileHash},
    {kAfcSetFileModTime, "SetFileModTime", 8, afcSetModTime},
    {0x1F, "GetFileHashWithRange", 0, nullptr},
    {0x20, "FileRefSetImmutableHint", 0, nullptr},
    {kAfcGetSizeOfPathContents, "GetSizeOfPathContents", 0,
     afcGetSizeOfContents},
    {kAfcRemovePathAndContents, "RemovePathAndContents", 0, afcRemoveTree},
    {0x23, "DirectoryEnumeratorRefOpen", 0, nullptr},
    {0x25, "DirectoryEnumeratorRefRead", 0, nullptr},
    {0x26, "DirectoryEnumeratorRefClose", 0, nullptr},
    {0x27, "FileRefReadWithOffset", 0, nullptr},
    {0x28, "FileRefWriteWithOffset", 0, nullptr},
};

const Operation *findOperation(uint64_t number)
{
    for (const Operation &operation : kOperations) {
        if (operation.number == number) {
            return &operation;
        }
    }
    return nullptr;
}

bool readRequest(Stream &stream, AfcRequest &request)
{
    uint8_t bytes[kAfcHeaderSize];
    AfcHeader header;
    if (!stream.read(bytes, sizeof bytes) || !decodeAfcHeader(bytes, header)) {
        return false;
    }
    request.operation = header.operation;
    request.packet = header.packet;
    request.fixed.resize(header.thisLength - kAfcHeaderSize);
    request.bulkLeft = header.entireLength - header.thisLength;
    return request.fixed.empty() ||
           stream.read(request.fixed.data(), request.fixed.size());
}

bool skipBulk(Stream &stream, AfcRequest &request)
{
    char scratch[16384];
    while (request.bulkLeft > 0) {
        const size_t piece =
            std::min<uint64_t>(request.bulkLeft, sizeof scratch);
        if (!stream.read(scratch, piece)) {
            return false;
        }
        request.bulkLeft -= piece;
    }
    return true;
}

// Fills from a file; what the file does not have any more is zero, since the
// length was already promised.
void fillFromFile(int fd, uint8_t *bytes, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t n = read(fd, bytes + done, size - done);
        if (n <= 0) {
            std::memset(bytes + done, 0, size - done);
            return;
        }
        done += static_cast<size_t>(n);
    }
}

// Header and fixed part leave in one piece, with the beginning of the bulk:
// clients read each with a single call.
bool sendReply(AfcSession &session, const AfcRequest &request,
               const AfcReply &reply)
{
    const uint64_t bulk = reply.fd >= 0 ? reply.fileBytes : reply.bulk.size();
    const size_t fixedEnd = kAfcHeaderSize + reply.fixed.size();
    const size_t first = std::min<uint64_t>(bulk, kPiece);
    Buffer buffer = newBuffer(fixedEnd + first);
    uint8_t *bytes = buffer.data.get();
    encodeAfcHeader(
        {fixedEnd + bulk, fixedEnd, request.packet, reply.operation}, bytes);
    std::copy(reply.fixed.begin(), reply.fixed.end(), bytes + kAfcHeaderSize);
    Stream &stream = session.connection.stream;
    if (reply.fd < 0) {
        if (bulk > first) {
            return stream.write(std::string(bytes, bytes + fixedEnd) +
                                reply.bulk);
        }
        std::copy(reply.bulk.begin(), reply.bulk.end(), bytes + fixedEnd);
        return stream.write(buffer);
    }
    fillFromFile(reply.fd, bytes + fixedEnd, first);
    bool sent = stream.write(buffer);
    for (uint64_t left = bulk - first; sent && left > 0;) {
        buffer = newBuffer(std::min<uint64_t>(left, kPiece));
        fillFromFile(reply.fd, buffer.data.get(), buffer.size);
        left -= buffer.size;
        sent = stream.write(buffer);
    }
    return sent;
}

void traceRequest(const AfcSession &session, const AfcRequest &request,
                  const char *name)
{
    if (session.connection.simulator.options.verbose) {
        std::string shown;
        for (const char c : request.fixed.substr(0, 200)) {
            shown += c >= 0x20 && c < 0x7F ? c : '.';
        }
        trace(session.connection.simulator, "afc #%llu %s %s",
              static_cast<unsigned long long>(request.packet), name,
              shown.c_str());
    }
}

bool answer(AfcSession &session, AfcRequest &request)
{
    Connection &connection = session.connection;
    const char *name = afcOperationName(request.operation);
    connection.simulator.statistics.count("afc", name);
    traceRequest(session, request, name);
    session.plan = connection.simulator.faults.plan(Layer::afc, name,
                                                    connection.device.index);
    if (!applyBeforeAnswer(connection, session.plan)) {
        return false;
    }
    AfcReply reply;
    if (session.plan.fail) {
        reply =
            afcStatus(std::strtoull(session.plan.fail->c_str(), nullptr, 10));
    } else {
        reply = handleAfc(session, request);
    }
    if (!skipBulk(connection.stream, request)) {
        return false;
    }
    const std::string held = std::move(session.heldReply);
    session.heldReply.clear();
    const bool sent = session.plan.spoilsReply()
                          ? sendSpoiled(session, request, reply)
                          : sendReply(session, request, reply);
    return sent && (held.empty() || connection.stream.write(held));
}

// A reply that waits for its successor does not wait for ever.
bool flushHeldReply(AfcSession &session)
{
    Stream &stream = session.connection.stream;
    if (session.heldReply.empty() || stream.waitInput(kReorderPatience)) {
        return true;
    }
    stream.wire().touch();
    const std::string held = std::move(session.heldReply);
    session.heldReply.clear();
    return stream.write(held);
}

} // namespace

AfcReply afcStatus(uint64_t code)
{
    AfcReply reply;
    reply.fixed = afcNumberBytes(code);
    return reply;
}

AfcReply afcData(std::string bytes)
{
    AfcReply reply;
    reply.operation = kAfcData;
    reply.bulk = std::move(bytes);
    return reply;
}

const char *afcOperationName(uint64_t operation)
{
    const Operation *found = findOperation(operation);
    return found != nullptr ? found->name : "unknown";
}

bool isAfcOperation(const std::string &name)
{
    return std::any_of(
        std::begin(kOperations), std::end(kOperations),
        [&](const Operation &operation) { return name == operation.name; });
}

AfcReply handleAfc(AfcSession &session, AfcRequest &request)
{
    const Operation *operation = findOperation(request.operation);
    if (operation == nullptr) {
        return afcStatus(kAfcUnknownPacket);
    }
    if (operation->handler == nullptr) {
        return afcStatus(kAfcNotSupported);
    }
    if (request.fixed.size() < operation->fixedSize) {
        return afcStatus(kAfcInvalidArgument);
    }
    return operation->handler(session, request);
}

void serveAfc(Connection &connection, const AfcRoot &root)
{
    AfcSession session{connection, root, {}, 1, {}, {}};
    AfcRequest request;
    while (flushHeldReply(session) && readRequest(connection.stream, request) &&
           answer(session, request)) {}
    for (const auto &[handle, fd] : session.files) {
        close(fd);
        connection.simulator.statistics.openFiles--;
    }
}

} // namespace sim
