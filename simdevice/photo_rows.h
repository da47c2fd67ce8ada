// The rows of Photos.sqlite that tell of photos, and the days they were taken.
#pragma once

#include <map>
#include <string>

#include "simdevice/photo_schema.h"
#include "simdevice/sample_media.h"
#include "simdevice/sql.h"

namespace sim
{

// A photo with its file.
struct PlacedPhoto {
    const SamplePhoto &photo;
    std::string path; // below the media root
    int64_t size;     // recorded
    bool local;       // the device says that it has the original
    bool uploaded;    // it has a cloud master
};

class PhotoRows
{
  public:
    PhotoRows(Database &database, const PhotoGeneration &generation,
              bool cloud);

    // All rows of one photo; further files of it come after it.
    void addPhoto(const PlacedPhoto &placed);
    void addFilm(const PlacedPhoto &placed, const std::string &path,
                 int64_t size);
    // A smaller version; hasCloudResources() tells where such have rows.
    void addPreview(const PlacedPhoto &placed, const std::string &path,
                    int64_t size);
    bool hasCloudResources() const;

    // Counts a photo for its day. addMoments() makes the rows of all days, and
    // of the moment that has no date.
    void countMoment(unsigned photo);
    void addMoments(Database &database);

  private:
    void addAsset(const PlacedPhoto &placed);
    void addAttributes(const PlacedPhoto &placed);
    void addMaster(const PlacedPhoto &placed);
    void addResource(const PlacedPhoto &placed, int type,
                     const std::string &path, int64_t size);
    void addInternal(const PlacedPhoto &placed, int type, int64_t size);

    struct Day {
        int64_t date = 0;
        unsigned photos = 0;
    };

    const PhotoGeneration &m_generation;
    bool m_cloud;
    Table m_assets;
    Table m_attributes;
    Table m_masters;
    Table m_resources;
    Table m_internal;
    int64_t m_resource = 0; // last key
    unsigned m_masterEntity;
    unsigned m_resourceEntity;
    unsigned m_internalEntity;
    std::map<unsigned, Day> m_days; // by the key of the moment
};

} // namespace sim
