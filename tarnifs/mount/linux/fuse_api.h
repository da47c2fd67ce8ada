// The FUSE library, at the interface version that the binding is written for.
#pragma once

#define FUSE_USE_VERSION 35
#include <fuse.h>
#include <fuse_lowlevel.h>
