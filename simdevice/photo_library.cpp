#include "simdevice/photo_library.h"

#include <algorithm>
#include <cstdio>

#include "simdevice/media_bytes.h"
#include "simdevice/photo_albums.h"
#include "simdevice/photo_rows.h"
#include "simdevice/photo_schema.h"
#include "simdevice/sample_media.h"
#include "simdevice/sql.h"

namespace sim
{

namespace
{

constexpr uint32_t kPlainPictures = 256; // different ones

class PhotoLibrary
{
  public:
    PhotoLibrary(FileMaker &files, const LibraryOptions &options,
                 Database &database)
        : m_files(files), m_options(options),
          m_generation(photoGeneration(options.version)), m_database(database),
          m_albums(database, m_generation),
          m_rows(database, m_generation, options.cloud)
    {
    }

    void make();

  private:
    bool isHere(const SamplePhoto &photo) const;
    void countMoments();
    void addFeatured(bool latest);
    void addPlain(uint32_t index);
    void addPhoto(const SamplePhoto &photo, const std::string &path,
                  const std::string &bytes);
    void addFilm(const PlacedPhoto &placed);
    void addPreview(const PlacedPhoto &placed);

    FileMaker &m_files;
    const LibraryOptions &m_options;
    const PhotoGeneration &m_generation;
    Database &m_database;
    PhotoAlbums m_albums;
    PhotoRows m_rows;
    std::vector<std::string> m_pictures; // of plain photos
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
    countMoments();
    m_rows.addMoments(m_database);
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
    const PlacedPhoto placed = {
        photo, path,
        photo.offBy == kRecordedAsZero
            ? 0
            : static_cast<int64_t>(content.size()) + photo.offBy,
        !photo.cloudOnly,
        m_options.cloud && photo.uploaded && !photo.shared && !photo.wallpaper};
    m_rows.addPhoto(placed);
    if (photo.film) {
        addFilm(placed);
    }
    if (photo.preview && m_rows.hasCloudResources()) {
        addPreview(placed);
    }
    if (!photo.shared && !photo.wallpaper) {
        m_albums.addToCameraRoll(photo.number);
    }
}

void PhotoLibrary::addFilm(const PlacedPhoto &placed)
{
    const unsigned number = placed.photo.number;
    const std::string film =
        mediaBytes("MOV", 1000 + number, 3000 + 10 * number);
    const std::string path =
        placed.path.substr(0, placed.path.rfind('.')) + ".MOV";
    m_files.file("Media/" + path, film, photoCreated(number));
    m_rows.addFilm(placed, path, static_cast<int64_t>(film.size()));
}

void PhotoLibrary::addPreview(const PlacedPhoto &placed)
{
    const unsigned number = placed.photo.number;
    const std::string bytes = mediaBytes("JPG", 1000 + number, 0);
    const std::string path = "PhotoData/CPLAssets/group102/" +
                             placed.path.substr(placed.path.rfind('/') + 1);
    m_files.file("Media/" + path, bytes, photoCreated(number));
    m_rows.addPreview(placed, path, static_cast<int64_t>(bytes.size()));
}

void PhotoLibrary::countMoments()
{
    for (const SamplePhoto &photo : samplePhotos()) {
        if (isHere(photo) && photo.dates == PhotoDates::all) {
            m_rows.countMoment(photo.number);
        }
    }
    for (uint32_t i = 0; i < m_options.photos; i++) {
        m_rows.countMoment(kPlainPhotoKey + 1 + i);
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
