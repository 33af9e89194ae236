// In place of a header that the library's own build generates: there is no OpenCL here.
#pragma once

#include "opencv2/core/opencl/ocl_defs.hpp"
