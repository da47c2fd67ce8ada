// Changes to names: remove, make a folder, rename.
#include "device/afc_file.h"

namespace iusb
{

// One request with a status as answer, after which nothing read before counts.
static int change(libiusb_afc *afc, AfcOp op, const std::string &fixed)
{
    AfcConnection *connection = nullptr;
    int code = afcBegin(afc, Call::Other, connection);
    if (code)
        return code;
    noteChange(*afc->context);
    return afcCall(*connection, op, fixed);
}

} // namespace iusb

using iusb::AfcOp;
using iusb::afcPath;
using iusb::change;
using iusb::goodPath;
using iusb::guardedOn;

int libiusb_afc_file_remove(libiusb_afc *afc, const char *path)
{
    if (!afc || !goodPath(path))
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc, [&] {
        int code = change(afc, AfcOp::RemovePath, afcPath(path));
        // What devices say about a folder with entries.
        return code == LIBIUSB_ERROR_AFC_UNKNOWN
                   ? static_cast<int>(LIBIUSB_ERROR_AFC_DIR_NOT_EMPTY)
                   : code;
    });
}

int libiusb_afc_make_directory(libiusb_afc *afc, const char *path)
{
    if (!afc || !goodPath(path))
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(
        afc, [&] { return change(afc, AfcOp::MakeDir, afcPath(path)); });
}

int libiusb_afc_rename(libiusb_afc *afc, const char *from, const char *to)
{
    if (!afc || !goodPath(from) || !goodPath(to))
        return LIBIUSB_ERROR_INVALID_ARG;
    return guardedOn(afc, [&] {
        return change(afc, AfcOp::RenamePath, iusb::afcTwoPaths(from, to));
    });
}
