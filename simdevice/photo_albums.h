// The rows of Photos.sqlite that tell of albums and what is in them.
#pragma once

#include <vector>

#include "simdevice/photo_schema.h"
#include "simdevice/sample_media.h"
#include "simdevice/sql.h"

namespace sim
{

class PhotoAlbums
{
  public:
    PhotoAlbums(Database &database, const PhotoGeneration &generation);

    // The sample's albums of which the latest rows tell, or all the others.
    void addAlbums(bool latest);
    // The album of what was taken here takes every photo, where there is one.
    void addToCameraRoll(unsigned photo);
    // What is known when all is there: the number in that album, largest keys.
    void finish();

  private:
    void addAlbum(const SampleAlbum &album);
    void join(unsigned album, unsigned photo);

    Database &m_database;
    const PhotoGeneration &m_generation;
    AlbumJoin m_names;
    Table m_albums;
    Table m_joins;
    unsigned m_cameraRoll = 0; // photos in it
};

} // namespace sim
