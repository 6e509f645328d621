/// The program's commands: each takes its options and returns the exit code. They throw Failure for exit code 1.

#pragma once

#include "tools/images/transform.h"

#include <string>
#include <vector>

namespace vndlp::tools {

enum ExitCode : int { kSuccess = 0, kBadFile = 1, kWrongUsage = 2 };

struct ConvertOptions {
    std::string input;
    std::string output;
    std::string profile;
    std::vector<std::string> assignments;
    std::vector<std::string> previews;
    Orientation orientation;
    double toleranceUm = -1;  ///< of traced outlines; negative: the output's own
    int threads = 0;          ///< 0: one a core
    bool force = false;
};
int convert(const ConvertOptions& options);

struct InfoOptions {
    std::string file;
    bool json = false;
    bool layers = false;
};
int info(const InfoOptions& options);

struct VerifyOptions {
    std::vector<std::string> files;
};
int verify(const VerifyOptions& options);

struct ExtractOptions {
    std::string file;
    std::string layers;  ///< "0-99,150"; empty: all
    bool previews = false;
    std::string folder;
    int threads = 0;
    bool force = false;
};
int extract(const ExtractOptions& options);

struct EstimateOptions {
    std::string file;
    std::string machine;  ///< empty: the file's
    std::string model;    ///< empty: the machine's own, else the general one
    std::vector<std::string> assignments;
    int threads = 0;
    bool json = false;
};
int estimate(const EstimateOptions& options);

struct MachinesOptions {
    bool json = false;
};
int machines(const MachinesOptions& options);

struct BeadsOptions {
    std::string file;
    int layer = 0;
    std::string output;
    bool force = false;
};
int beads(const BeadsOptions& options);

/// Threads to use for a wish of 0 (one a core) or more.
int threadCount(int wish);

}  // namespace vndlp::tools
