#include "tarnifs/mount/common/statfs.h"

#include "tarnifs/mount/common/gate.h"
#include "tarnifs/mount/common/results.h"
#include "tarnifs/mount/operations.h"

namespace
{

constexpr unsigned long NAME_LENGTH = 255; // bytes

} // namespace

int StatfsAdapter(const char * /*path*/, struct statvfs *st)
{
    const Gate gate;
    const int ret = HostResult(tarni_opers.statfs("/", st));
    if (ret == 0) {
        st->f_frsize = st->f_bsize;
        st->f_namemax = NAME_LENGTH;
    }
    return ret;
}
