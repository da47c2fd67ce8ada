#include "simdevice/recordings.h"

#include <cstdio>
#include <ctime>

#include "simdevice/media_bytes.h"
#include "simdevice/sample_media.h"
#include "simdevice/sql.h"

namespace sim
{

namespace
{

constexpr unsigned kFirstInCloud = 1200;    // CloudRecordings.db
constexpr unsigned kFirstWithTitles = 1400; // ZENCRYPTEDTITLE, ZEVICTIONDATE
constexpr unsigned kFirstElsewhere = 1700;  // outside the media file system

constexpr const char *kFolder = "Recordings/";
constexpr double kSecondsTo2001 = 978307200;

constexpr const char *kEntities =
    "CREATE TABLE Z_PRIMARYKEY (Z_ENT INTEGER PRIMARY KEY, Z_NAME VARCHAR,"
    " Z_SUPER INTEGER, Z_MAX INTEGER);"
    "CREATE TABLE Z_METADATA (Z_VERSION INTEGER PRIMARY KEY,"
    " Z_UUID VARCHAR(255), Z_PLIST BLOB);";

constexpr const char *kRecordingTable =
    "CREATE TABLE ZRECORDING (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER,"
    " Z_OPT INTEGER, ZITUNESPERSISTENTID INTEGER, ZLABELPRESET INTEGER,"
    " ZPENDINGRESTORE INTEGER, ZRECORDINGID INTEGER, ZSYNCED INTEGER,"
    " ZDATE TIMESTAMP, ZDURATION FLOAT, ZCUSTOMLABEL VARCHAR, ZPATH VARCHAR);";

std::string cloudTables(bool titles)
{
    return std::string(
               "CREATE TABLE ZCLOUDRECORDING (Z_PK INTEGER PRIMARY KEY,"
               " Z_ENT INTEGER, Z_OPT INTEGER, ZFLAGS INTEGER,"
               " ZSHAREDFLAGS INTEGER, ZFOLDER INTEGER, ZDATE TIMESTAMP,"
               " ZDURATION FLOAT, ZLOCALDURATION FLOAT,"
               " ZCUSTOMLABEL VARCHAR, ZCUSTOMLABELFORSORTING VARCHAR,") +
           (titles ? " ZEVICTIONDATE TIMESTAMP, ZENCRYPTEDTITLE VARCHAR,"
                   : "") +
           " ZPATH VARCHAR, ZUNIQUEID VARCHAR, ZAUDIODIGEST BLOB);"
           "CREATE TABLE ZFOLDER (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER,"
           " Z_OPT INTEGER, ZENCRYPTEDNAME VARCHAR, ZUUID VARCHAR);"
           "INSERT INTO Z_PRIMARYKEY VALUES (1, 'CloudRecording', 0, 0),"
           " (2, 'Folder', 0, 0), (3, 'Recording', 0, 0);";
}

tm dateOf(unsigned number)
{
    const time_t time = memoTime(number);
    tm parts = {};
    gmtime_r(&time, &parts);
    return parts;
}

// As the phone labels what nobody gave a name.
std::string dateLabel(unsigned number)
{
    const tm parts = dateOf(number);
    char text[40] = "";
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string fileName(const SampleMemo &memo, unsigned version)
{
    const unsigned number = memo.file != 0 ? memo.file : memo.number;
    const tm parts = dateOf(number);
    char date[40] = "";
    std::strftime(date, sizeof date, "%Y%m%d %H%M%S", &parts);
    char tail[16] = "";
    if (version >= kFirstInCloud) {
        std::snprintf(tail, sizeof tail, "-4FA3%04X", number);
    }
    return std::string(date) + tail + ".m4a";
}

void addFile(FileMaker &maker, const SampleMemo &memo, unsigned version)
{
    if (memo.original == Original::missing || memo.pathless || memo.file != 0) {
        return;
    }
    const bool empty = memo.original == Original::empty;
    maker.file(std::string("Media/") + kFolder + fileName(memo, version),
               empty ? ""
                     : mediaBytes("m4a", memo.number, 2000 + 100 * memo.number),
               memoTime(memo.number));
}

void addRecording(Table &table, const SampleMemo &memo, unsigned version)
{
    const std::string path =
        std::string("/var/mobile/Media/") + kFolder + fileName(memo, version);
    table.add({
        {"Z_PK", memo.number},
        {"Z_ENT", 1},
        {"Z_OPT", 1},
        {"ZLABELPRESET", 7},
        {"ZRECORDINGID", memo.number},
        {"ZSYNCED", 0},
        {"ZDATE", static_cast<double>(memoTime(memo.number)) - kSecondsTo2001},
        {"ZDURATION", 4.5},
        {"ZCUSTOMLABEL", memo.label},
        {"ZPATH", memo.pathless ? Value(nullptr) : Value(path)},
    });
}

void addCloudRecording(Table &table, const SampleMemo &memo, unsigned version)
{
    const std::string path = fileName(memo, version);
    const std::string date = dateLabel(memo.number);
    const double recorded =
        static_cast<double>(memoTime(memo.number)) - kSecondsTo2001;
    char id[40];
    std::snprintf(id, sizeof id, "4FA3%04X-2B6E-4D1A-9F30-%012X", memo.number,
                  memo.number);
    Row row = {
        {"Z_PK", memo.number},
        {"Z_ENT", 1},
        {"Z_OPT", 1},
        {"ZFLAGS", 0},
        {"ZDATE", recorded},
        {"ZDURATION", 4.5},
        {"ZLOCALDURATION", 4.5},
        // No label means none of the three.
        {"ZCUSTOMLABEL", memo.label != nullptr ? Value(date) : Value(nullptr)},
        {"ZCUSTOMLABELFORSORTING", memo.label},
        {"ZPATH", memo.pathless ? Value(nullptr) : Value(path)},
        {"ZUNIQUEID", static_cast<const char *>(id)},
    };
    if (version >= kFirstWithTitles) {
        row.push_back({"ZENCRYPTEDTITLE", memo.label});
        row.push_back({"ZEVICTIONDATE",
                       memo.deleted ? Value(recorded + 3600) : Value(nullptr)});
    }
    table.add(row);
}

// One without a deletion date has no rows of what was deleted either.
bool isHere(const SampleMemo &memo, unsigned version)
{
    return !memo.deleted || version >= kFirstWithTitles;
}

void makeOld(FileMaker &maker, unsigned version)
{
    const std::string path = std::string("Media/") + kFolder + "Recordings.db";
    Database database(maker.place(path));
    database.run(std::string(kEntities) + kRecordingTable +
                 "INSERT INTO Z_PRIMARYKEY VALUES (1, 'Recording', 0, 13)");
    {
        Table table(database, "ZRECORDING");
        for (const SampleMemo &memo : sampleMemos()) {
            if (isHere(memo, version)) {
                addRecording(table, memo, version);
            }
        }
    }
    maker.written(path, database.close());
}

void makeCloud(FileMaker &maker, unsigned version)
{
    const std::string path =
        std::string("Media/") + kFolder + "CloudRecordings.db";
    Database database(maker.place(path));
    database.run(std::string(kEntities) + kRecordingTable +
                 cloudTables(version >= kFirstWithTitles));
    {
        Table table(database, "ZCLOUDRECORDING");
        for (const bool latest : {false, true}) {
            for (const SampleMemo &memo : sampleMemos()) {
                if (memo.latest == latest && isHere(memo, version)) {
                    addCloudRecording(table, memo, version);
                }
            }
            if (!latest) {
                database.logFromHere();
            }
        }
    }
    maker.written(path, database.close());
}

} // namespace

void makeRecordings(FileMaker &maker, const LibraryOptions &options)
{
    if (options.version >= kFirstElsewhere) {
        return;
    }
    for (const SampleMemo &memo : sampleMemos()) {
        if (isHere(memo, options.version)) {
            addFile(maker, memo, options.version);
        }
    }
    if (options.version < kFirstInCloud) {
        makeOld(maker, options.version);
    } else {
        makeCloud(maker, options.version);
    }
}

} // namespace sim
