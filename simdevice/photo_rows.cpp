#include "simdevice/photo_rows.h"

#include <cstdio>

namespace sim
{

namespace
{

constexpr double kSecondsTo2001 = 978307200;
constexpr const char *kMediaRoot = "/var/mobile/Media/";
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

} // namespace

PhotoRows::PhotoRows(Database &database, const PhotoGeneration &generation,
                     bool cloud)
    : m_generation(generation), m_cloud(cloud),
      m_assets(database, assetTable(generation)),
      m_attributes(database, "ZADDITIONALASSETATTRIBUTES"),
      m_masters(database, "ZCLOUDMASTER"),
      m_resources(database, "ZCLOUDRESOURCE"),
      m_internal(database, "ZINTERNALRESOURCE"),
      m_masterEntity(entityOf(generation, "CloudMaster")),
      m_resourceEntity(entityOf(generation, "CloudResource")),
      m_internalEntity(entityOf(generation, "InternalResource"))
{
}

bool PhotoRows::hasCloudResources() const
{
    return m_cloud && !hasInternalResources(m_generation);
}

void PhotoRows::addPhoto(const PlacedPhoto &placed)
{
    addAsset(placed);
    addAttributes(placed);
    addInternal(placed, placed.photo.kind, placed.size);
    if (placed.uploaded) {
        addMaster(placed);
        addResource(placed, kOriginal, placed.path, placed.size);
    }
}

void PhotoRows::addFilm(const PlacedPhoto &placed, const std::string &path,
                        int64_t size)
{
    addInternal(placed, kInternalLiveFilm, size);
    if (placed.uploaded) {
        addResource(placed, kLiveFilm, path, size);
    }
}

void PhotoRows::addPreview(const PlacedPhoto &placed, const std::string &path,
                           int64_t size)
{
    addResource(placed, kLarge, path, size);
}

void PhotoRows::addAsset(const PlacedPhoto &placed)
{
    const SamplePhoto &photo = placed.photo;
    const unsigned key = photo.number;
    const bool dated = photo.dates != PhotoDates::none;
    const auto created = static_cast<double>(photoCreated(key));
    const size_t slash = placed.path.rfind('/');
    const std::string directory = placed.path.substr(0, slash);
    const std::string name = placed.path.substr(slash + 1);
    const std::string id = uuid(key);
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
        {"ZCLOUDASSETGUID", placed.uploaded ? Value(id) : Value(nullptr)},
        {"ZDIRECTORY", directory},
        {"ZFILENAME", name},
        {"ZUNIFORMTYPEIDENTIFIER", typeIdentifier(photo.extension)},
        {"ZUUID", id},
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

void PhotoRows::addAttributes(const PlacedPhoto &placed)
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

void PhotoRows::addMaster(const PlacedPhoto &placed)
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
void PhotoRows::addResource(const PlacedPhoto &placed, int type,
                            const std::string &path, int64_t size)
{
    if (!hasCloudResources()) {
        return;
    }
    const SamplePhoto &photo = placed.photo;
    const std::string full = kMediaRoot + path;
    const std::string id = uuid(photo.number);
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
        {"ZASSETUUID", id},
        {"ZFILEPATH", full},
        {"ZUNIFORMTYPEIDENTIFIER", typeIdentifier(photo.extension)},
    });
}

void PhotoRows::addInternal(const PlacedPhoto &placed, int type, int64_t size)
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

void PhotoRows::countMoment(unsigned photo)
{
    Day &day = m_days[momentKey(photo)];
    day.date = photoMoment(photo);
    day.photos++;
}

void PhotoRows::addMoments(Database &database)
{
    Table moments(database, "ZMOMENT");
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
    for (const auto &[key, day] : m_days) {
        add(key, since2001(static_cast<double>(day.date)), day.photos);
    }
}

} // namespace sim
