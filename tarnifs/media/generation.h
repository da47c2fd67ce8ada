// Generations of databases. Newer devices keep the same facts under other table
// names; temporary views on the connection give them the names and columns that
// our queries know. They live and die with the connection and change nothing in
// the file. What is decided here is decided by the schema that is found, never
// by a version number.
#pragma once

struct sqlite3;

// For the photo database. A needed table or column that is missing is logged; a
// missing column reads as NULL.
void InstallPhotoViews(sqlite3 *database);

// For the newer recordings database. False when it has no recordings table of
// the newer kind.
bool InstallRecordingView(sqlite3 *database);
