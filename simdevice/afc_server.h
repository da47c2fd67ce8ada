// The AFC service. Requests of one connection are handled in the order in which
// they arrive, and answered in that order.
#pragma once

#include <map>
#include <string>

#include "simdevice/afc_packet.h"
#include "simdevice/afc_paths.h"
#include "simdevice/services.h"

namespace sim
{

struct AfcRequest {
    uint64_t operation = 0;
    uint64_t packet = 0;
    std::string fixed;
    uint64_t bulkLeft = 0; // bulk bytes still to be read off the stream
};

struct AfcReply {
    uint64_t operation = kAfcStatus;
    std::string fixed; // the status code, a handle, a position
    std::string bulk;  // what a DATA reply carries,
    int fd = -1;       // or the next `fileBytes` of this file
    uint64_t fileBytes = 0;
};

struct AfcSession {
    Connection &connection;
    AfcRoot root;
    std::map<uint64_t, int> files; // handle -> descriptor
    uint64_t nextFile = 1;
    FaultPlan plan;        // of the request being handled
    std::string heldReply; // sent after the next one
};

// Serves AFC with this root to the end of the connection.
void serveAfc(Connection &connection, const AfcRoot &root);

AfcReply afcStatus(uint64_t code);
AfcReply afcData(std::string bytes);

// The name by which statistics and faults know an operation; "unknown" for a
// number that is none of a request.
const char *afcOperationName(uint64_t operation);
bool isAfcOperation(const std::string &name);

// Handles one request. May leave bulk data unread.
AfcReply handleAfc(AfcSession &session, AfcRequest &request);

// Sends a reply otherwise than it should be, as session.plan says. False: the
// connection ends.
bool sendSpoiled(AfcSession &session, const AfcRequest &request,
                 const AfcReply &reply);

// The handlers, by file: afc_tree.cpp ...
AfcReply afcReadDir(AfcSession &session, AfcRequest &request);
AfcReply afcRemovePath(AfcSession &session, AfcRequest &request);
AfcReply afcRemoveTree(AfcSession &session, AfcRequest &request);
AfcReply afcMakeDir(AfcSession &session, AfcRequest &request);
AfcReply afcRename(AfcSession &session, AfcRequest &request);
AfcReply afcMakeLink(AfcSession &session, AfcRequest &request);
// ... afc_info.cpp ...
AfcReply afcGetFileInfo(AfcSession &session, AfcRequest &request);
AfcReply afcGetDeviceInfo(AfcSession &session, AfcRequest &request);
AfcReply afcGetConnectionInfo(AfcSession &session, AfcRequest &request);
AfcReply afcSetModTime(AfcSession &session, AfcRequest &request);
AfcReply afcGetFileHash(AfcSession &session, AfcRequest &request);
AfcReply afcSetBlockSize(AfcSession &session, AfcRequest &request);
AfcReply afcGetSizeOfContents(AfcSession &session, AfcRequest &request);
// ... afc_files.cpp.
AfcReply afcOpen(AfcSession &session, AfcRequest &request);
AfcReply afcRead(AfcSession &session, AfcRequest &request);
AfcReply afcReadFile(AfcSession &session, AfcRequest &request);
AfcReply afcWrite(AfcSession &session, AfcRequest &request);
AfcReply afcSeek(AfcSession &session, AfcRequest &request);
AfcReply afcTell(AfcSession &session, AfcRequest &request);
AfcReply afcClose(AfcSession &session, AfcRequest &request);
AfcReply afcSetFileSize(AfcSession &session, AfcRequest &request);
AfcReply afcTruncate(AfcSession &session, AfcRequest &request);
AfcReply afcLock(AfcSession &session, AfcRequest &request);

} // namespace sim
