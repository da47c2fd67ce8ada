// What the bindings use of the FUSE library's option parser; see fuse.h.
#pragma once

#include <cstddef>

extern "C" {

struct fuse_args {
    int argc;
    char **argv;
    int allocated;
};
#define FUSE_ARGS_INIT(argc, argv) {argc, argv, 0}

struct fuse_opt {
    const char *templ;
    unsigned long offset;
    int value;
};
#define FUSE_OPT_END {nullptr, 0, 0}

enum { FUSE_OPT_KEY_OPT = -1, FUSE_OPT_KEY_NONOPT = -2 };

int fuse_opt_parse(struct fuse_args *args, void *data,
                   const struct fuse_opt *table,
                   int (*take)(void *data, const char *option, int key,
                               struct fuse_args *rest));
void fuse_opt_free_args(struct fuse_args *args);
}
