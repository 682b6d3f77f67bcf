// The shared file helpers under the names the end-to-end tests use.
#pragma once
#include "temp_dir.h"
namespace dltest { using namespace files; }
