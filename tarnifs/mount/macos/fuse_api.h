// The FUSE library, at the interface version that the binding is written for.
#pragma once

#define FUSE_USE_VERSION 26
#include <fuse.h>
