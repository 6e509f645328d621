/// \file vndlp.h
/// Everything the library exports.

#ifndef VNDLP_VNDLP_H
#define VNDLP_VNDLP_H

#include <vndlp/calibration.h>
#include <vndlp/check_file.h>
#include <vndlp/checksum.h>
#include <vndlp/container.h>
#include <vndlp/ctb.h>
#include <vndlp/export.h>
#include <vndlp/formats.h>
#include <vndlp/image.h>
#include <vndlp/job_check.h>
#include <vndlp/mesh.h>
#include <vndlp/messages.h>
#include <vndlp/print_time.h>
#include <vndlp/slice_file.h>
#include <vndlp/slice_write.h>
#include <vndlp/streams.h>
#include <vndlp/v4.h>
#include <vndlp/wrappers.h>
#include <vndlp/writer.h>

#endif
