#include "simdevice/photo_library.h"

#include <cstdio>
#include <map>

#include "simdevice/media_bytes.h"
#include "simdevice/photo_albums.h"
#include "simdevice/photo_schema.h"
#include "simdevice/sample_media.h"
#include "simdevice/sql.h"

namespace sim
{

namespace
{

constexpr double kSecondsTo2001 = 978307200;
constexpr const char *kMediaRoot = "/var/mobile/Media/";
constexpr uint32_t kPlainPictures = 256; // different ones
constexpr unsigned kUndatedMoment = 999;

// Types of cloud resources, and of internal resources.
constexpr int kOriginal = 1;
constexpr int kLarge = 3;
constexpr int kLiveFilm = 18;
constexpr int kInternalLiveFilm = 3;

double since2001(double seconds)
{
    return seconds - kSecondsTo2001;
}

std::string uuid(unsigned number)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08X-5A3C-4E1D-8B27-%012X",
                  number * 0x9E3779B1U, number);
    return text;
}

unsigned momentKey(unsigned key)
{
    return 1000 +
           static_cast<unsigned>((photoMoment(key) - photoMoment(1)) / 86400);
}

const char *typeIdentifier(const std::string &extension)
{
    if (extension == "JPG") {
        return "public.jpeg";
    }
    if (extension == "HEIC") {
        return "public.heic";
    }
    if (extension == "PNG") {
        return "public.png";
    }
    return extension == "MP4" ? "public.mpeg-4" : "com.apple.quicktime-movie";
}

// A photo with its file.
struct Placed {
    const SamplePhoto &photo;
    std::string path; // below the media root
    std::string name; // last part of it
    int64_t size;     // recorded
    bool local;       // the device says that it has the original
    bool uploaded;
    std::string uuid;
};

class PhotoLibrary
{
  public:
    PhotoLibrary(FileMaker &files, const LibraryOptions &options,
                 Database &database)
        : m_files(files), m_options(options),
          m_generation(photoGeneration(options.version)), m_database(database),
          m_albums(database, m_generation),
          m_assets(database, assetTable(m_generation)),
          m_attributes(database, "ZADDITIONALASSETATTRIBUTES"),
          m_masters(database, "ZCLOUDMASTER"),
          m_resources(database, "ZCLOUDRESOURCE"),
          m_internal(database, "ZINTERNALRESOURCE")
    {
    }

    void make();

  private:
    bool isHere(const SamplePhoto &photo) const;
    void addFeatured(bool latest);
    void addPlain(uint32_t index);
    void addPhoto(const SamplePhoto &photo, const std::string &path,
                  const std::string &bytes);
    void addFilm(const Placed &placed);
    void addAsset(const Placed &placed);
    void addAttributes(const Placed &placed);
    void addMaster(const Placed &placed);
    void addResource(const Placed &placed, int type, const std::string &path,
                     int64_t size);
    void addInternal(const Placed &placed, int type, int64_t size);
    void addPreview(const Placed &placed);
    void addMoments();
    bool hasCloudResources() const
    {
        return m_options.cloud && !hasInternalResources(m_generation);
    }

    FileMaker &m_files;
    const LibraryOptions &m_options;
    const PhotoGeneration &m_generation;
    Database &m_database;
    PhotoAlbums m_albums;
    Table m_assets;
    Table m_attributes;
    Table m_masters;
    Table m_resources;
    Table m_internal;
    std::vector<std::string> m_pictures; // of plain photos
    int64_t m_resource = 0;              // last key
    unsigned m_masterEntity = entityOf(m_generation, "CloudMaster");
    unsigned m_resourceEntity = entityOf(m_generation, "CloudResource");
    unsigned m_internalEntity = entityOf(m_generation, "InternalResource");
};

bool PhotoLibrary::isHere(const SamplePhoto &photo) const
{
    return photo.since <= m_options.version &&
           (!photo.cloudOnly || m_options.cloud) &&
           (!photo.wallpaper || m_generation.since < 1300);
}

void PhotoLibrary::make()
{
    makePhotoTables(m_database, m_generation);
    addMoments();
    for (uint32_t i = 0; i < std::min(m_options.photos, kPlainPictures); i++) {
        m_pictures.push_back(mediaBytes("JPG", i + 1, 0));
    }
    addFeatured(false);
    for (uint32_t i = 0; i < m_options.photos; i++) {
        addPlain(i);
    }
    m_albums.addAlbums(false);
    m_database.logFromHere();
    addFeatured(true);
    m_albums.addAlbums(true);
    m_albums.finish();
}

void PhotoLibrary::addFeatured(bool latest)
{
    for (const SamplePhoto &photo : samplePhotos()) {
        if (!isHere(photo) || photo.latest != latest) {
            continue;
        }
        char usual[64];
        std::snprintf(usual, sizeof usual, "DCIM/900APPLE/IMG_9%03u.%s",
                      photo.number, photo.extension);
        addPhoto(photo, photo.path != nullptr ? photo.path : usual,
                 mediaBytes(photo.extension, photo.number,
                            2000 + 10 * photo.number));
    }
}

// As a camera numbers them: 999 pictures to a folder.
void PhotoLibrary::addPlain(uint32_t index)
{
    char path[64];
    const int folder =
        std::snprintf(path, sizeof path, "DCIM/%uAPPLE/", 100 + index / 999);
    char *name = path + folder;
    std::snprintf(name, sizeof path - static_cast<size_t>(folder),
                  "IMG_%04u.JPG", index + 1);
    const bool elsewhere = m_options.cloud && (index + 1) % 4 == 0;
    const SamplePhoto photo = {
        .number = kPlainPhotoKey + 1 + index,
        .name = name,
        .cloudOnly = elsewhere,
        .original = elsewhere ? Original::missing : Original::there,
    };
    addPhoto(photo, path, m_pictures[index % m_pictures.size()]);
}

void PhotoLibrary::addPhoto(const SamplePhoto &photo, const std::string &path,
                            const std::string &bytes)
{
    const bool empty = photo.original == Original::empty;
    const std::string_view content =
        empty ? std::string_view() : std::string_view(bytes);
    if (photo.original != Original::missing) {
        m_files.file("Media/" + path, content, photoCreated(photo.number));
    }
    const Placed placed = {
        photo,
        path,
        path.substr(path.rfind('/') + 1),
        photo.offBy == kRecordedAsZero
            ? 0
            : static_cast<int64_t>(content.size()) + photo.offBy,
        !photo.cloudOnly,
        m_options.cloud && photo.uploaded && !photo.shared && !photo.wallpaper,
        uuid(photo.number)};
    addAsset(placed);
    addAttributes(placed);
    addInternal(placed, photo.kind, placed.size);
    if (placed.uploaded) {
        addMaster(placed);
        addResource(placed, kOriginal, path, placed.size);
    }
    if (photo.film) {
        addFilm(placed);
    }
    if (photo.preview && hasCloudResources()) {
        addPreview(placed);
    }
    if (!photo.shared && !photo.wallpaper) {
        m_albums.addToCameraRoll(photo.number);
    }
}

void PhotoLibrary::addFilm(const Placed &placed)
{
    const unsigned number = placed.photo.number;
    const std::string film =
        mediaBytes("MOV", 1000 + number, 3000 + 10 * number);
    const std::string path =
        placed.path.substr(0, placed.path.rfind('.')) + ".MOV";
    const auto size = static_cast<int64_t>(film.size());
    m_files.file("Media/" + path, film, photoCreated(number));
    addInternal(placed, kInternalLiveFilm, size);
    if (placed.uploaded) {
        addResource(placed, kLiveFilm, path, size);
    }
}

void PhotoLibrary::addPreview(const Placed &placed)
{
    const std::string bytes = mediaBytes("JPG", 1000 + placed.photo.number, 0);
    const std::string path = "PhotoData/CPLAssets/group102/" + placed.name;
    m_files.file("Media/" + path, bytes, photoCreated(placed.photo.number));
    addResource(placed, kLarge, path, static_cast<int64_t>(bytes.size()));
}

void PhotoLibrary::addAsset(const Placed &placed)
{
    const SamplePhoto &photo = placed.photo;
    const unsigned key = photo.number;
    const bool dated = photo.dates != PhotoDates::none;
    const auto created = static_cast<double>(photoCreated(key));
    const std::string directory = placed.path.substr(0, placed.path.rfind('/'));
    const std::optional<std::string> burst =
        photo.pick != 0 ? std::optional(uuid(500 + key / 2)) : std::nullopt;
    using Date = std::optional<double>;
    Row row = {
        {"Z_PK", key},
        {"Z_ENT", photoEntity(m_generation) + (photo.wallpaper ? 1 : 0)},
        {"Z_OPT", 1},
        {"ZAVALANCHEPICKTYPE", photo.pick},
        {"ZCLOUDLOCALSTATE", placed.uploaded ? 1 : 0},
        {"ZCOMPLETE", 1},
        {"ZFAVORITE", 0},
        {"ZHEIGHT", 120},
        {"ZHIDDEN", photo.hidden ? 1 : 0},
        {"ZKIND", photo.kind},
        {"ZKINDSUBTYPE", photo.subtype},
        {"ZORIENTATION", 1},
        {"ZSAVEDASSETTYPE", photo.shared ? 4 : 3},
        {"ZTHUMBNAILINDEX", key},
        {"ZTRASHEDSTATE", photo.trashed ? 1 : 0},
        {"ZVISIBILITYSTATE", photo.visibility},
        {"ZWIDTH", 160},
        {"ZADDITIONALATTRIBUTES", key + 7},
        {"ZMOMENT", photo.dates == PhotoDates::undatedMoment
                        ? std::optional(kUndatedMoment)
                    : dated ? std::optional(momentKey(key))
                            : std::nullopt},
        {"ZDATECREATED", dated ? Date(since2001(created)) : std::nullopt},
        {"ZDURATION", photo.kind == 1 ? 2.5 : 0.0},
        {"ZLATITUDE", -180.0},
        {"ZLONGITUDE", -180.0},
        {"ZMODIFICATIONDATE",
         dated ? Date(since2001(photoModified(key))) : std::nullopt},
        {"ZTRASHEDDATE",
         photo.trashed ? Date(since2001(created + 90)) : std::nullopt},
        {"ZAVALANCHEUUID", burst},
        {"ZCLOUDASSETGUID",
         placed.uploaded ? Value(placed.uuid) : Value(nullptr)},
        {"ZDIRECTORY", directory},
        {"ZFILENAME", placed.name},
        {"ZUNIFORMTYPEIDENTIFIER", typeIdentifier(photo.extension)},
        {"ZUUID", placed.uuid},
    };
    if (hasMasterInAsset(m_generation)) {
        row.push_back(
            {"ZMASTER", placed.uploaded ? Value(key + 3) : Value(nullptr)});
    }
    if (m_generation.since >= 1003) {
        const int still = photo.subtype == 2 ? 3 : 1;
        row.push_back({"ZPLAYBACKSTYLE", photo.kind == 1 ? 4 : still});
    }
    if (m_generation.since >= 1400) {
        row.push_back({"ZDERIVEDCAMERACAPTUREDEVICE", photo.camera});
    }
    m_assets.add(row);
}

void PhotoLibrary::addAttributes(const Placed &placed)
{
    const SamplePhoto &photo = placed.photo;
    Row row = {
        {"Z_PK", photo.number + 7},
        {"Z_ENT", 1},
        {"Z_OPT", 1},
        {"ZCAMERACAPTUREDEVICE", photo.camera},
        {"ZORIGINALFILESIZE", placed.size},
        {"ZORIGINALHEIGHT", 120},
        {"ZORIGINALWIDTH", 160},
        {"ZASSET", photo.number},
        {"ZORIGINALFILENAME", photo.name},
    };
    if (!hasMasterInAsset(m_generation)) {
        row.push_back({"ZCLOUDMASTER", placed.uploaded ? Value(photo.number + 3)
                                                       : Value(nullptr)});
    }
    const std::string entity =
        "Z" + std::to_string(m_generation.asset) + "_ASSET";
    if (hasGenericAsset(m_generation)) {
        row.push_back({entity.c_str(), photoEntity(m_generation)});
    }
    m_attributes.add(row);
}

void PhotoLibrary::addMaster(const Placed &placed)
{
    const SamplePhoto &photo = placed.photo;
    const std::string guid = uuid(200000 + photo.number);
    m_masters.add({
        {"Z_PK", photo.number + 3},
        {"Z_ENT", m_masterEntity},
        {"Z_OPT", 1},
        {"ZCLOUDLOCALSTATE", 3},
        {"ZCREATIONDATE",
         since2001(static_cast<double>(photoCreated(photo.number)))},
        {"ZCLOUDMASTERGUID", guid},
        {"ZORIGINALFILENAME", photo.name},
        {"ZUNIFORMTYPEIDENTIFIER", typeIdentifier(photo.extension)},
    });
}

// Later versions have the table and leave it empty.
void PhotoLibrary::addResource(const Placed &placed, int type,
                               const std::string &path, int64_t size)
{
    if (!hasCloudResources()) {
        return;
    }
    const SamplePhoto &photo = placed.photo;
    const std::string full = kMediaRoot + path;
    m_resources.add({
        {"Z_PK", ++m_resource},
        {"Z_ENT", m_resourceEntity},
        {"Z_OPT", 1},
        {"ZFILESIZE", size},
        {"ZISAVAILABLE", 1},
        {"ZISLOCALLYAVAILABLE", type != kOriginal || placed.local ? 1 : 0},
        {"ZTYPE", type},
        {"ZASSET", photo.number},
        {"ZCLOUDMASTER", photo.number + 3},
        {"ZASSETUUID", placed.uuid},
        {"ZFILEPATH", full},
        {"ZUNIFORMTYPEIDENTIFIER", typeIdentifier(photo.extension)},
    });
}

void PhotoLibrary::addInternal(const Placed &placed, int type, int64_t size)
{
    if (!hasInternalResources(m_generation)) {
        return;
    }
    m_internal.add({
        {"Z_ENT", m_internalEntity},
        {"Z_OPT", 1},
        {"ZDATASTORESUBTYPE",
         type == kInternalLiveFilm ? kLiveFilm : kOriginal},
        {"ZLOCALAVAILABILITY", placed.local ? 1 : -1},
        {"ZREMOTEAVAILABILITY", placed.uploaded ? 1 : 0},
        {"ZRESOURCETYPE", type},
        {"ZASSET", placed.photo.number},
        {"ZDATALENGTH", size},
    });
}

// One for each day, and the one without a date.
void PhotoLibrary::addMoments()
{
    std::map<unsigned, std::pair<int64_t, unsigned>> days;
    const auto count = [&](unsigned key) {
        auto &[day, photos] = days[momentKey(key)];
        day = photoMoment(key);
        photos++;
    };
    for (const SamplePhoto &photo : samplePhotos()) {
        if (isHere(photo) && photo.dates == PhotoDates::all) {
            count(photo.number);
        }
    }
    for (uint32_t i = 0; i < m_options.photos; i++) {
        count(kPlainPhotoKey + 1 + i);
    }
    Table moments(m_database, "ZMOMENT");
    const auto add = [&](unsigned key, const std::optional<double> &date,
                         unsigned photos) {
        const std::string name = uuid(300000 + key);
        moments.add({{"Z_PK", key},
                     {"Z_ENT", m_generation.moment},
                     {"Z_OPT", 1},
                     {"ZCACHEDCOUNT", photos},
                     {"ZTRASHEDSTATE", 0},
                     {"ZREPRESENTATIVEDATE", date},
                     {"ZUUID", name}});
    };
    add(kUndatedMoment, std::nullopt, 1);
    for (const auto &[key, moment] : days) {
        const auto &[day, photos] = moment;
        add(key, since2001(static_cast<double>(day)), photos);
    }
}

} // namespace

void makePhotoLibrary(FileMaker &maker, const LibraryOptions &options)
{
    const std::string path = "Media/PhotoData/Photos.sqlite";
    Database database(maker.place(path));
    {
        PhotoLibrary library(maker, options, database);
        library.make();
    }
    maker.written(path, database.close());
}

} // namespace sim
