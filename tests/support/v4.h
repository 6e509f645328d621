/// What the V4 suites share.

#pragma once

#include "support/ctb.h"

#include <vndlp/v4.h>
#include <vndlp/writer.h>

#include <unistd.h>

#include <filesystem>
#include <string>

namespace vndlp::test {

/// A file name that is nobody else's, removed at the end.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& ending = ".vndlpv4") {
        static int count = 0;
        m_path = (std::filesystem::temp_directory_path() /
                  ("vndlp-test-" + std::to_string(getpid()) + "-" + std::to_string(count++) + ending))
                     .string();
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        std::error_code ignored;
        std::filesystem::remove(m_path, ignored);
    }

    const std::string& path() const { return m_path; }
    Bytes bytes() const { return readFile(m_path); }
    void setBytes(const Bytes& bytes) const { writeFile(m_path, bytes); }

private:
    std::string m_path;
};

/// Settings of a job, every one of which a V4 file stores.
inline void fillSettings(DLPWriter& writer, int bottomLayers) {
    writer.printTime = 3600;
    writer.bedSizeX = 211.5;
    writer.bedSizeY = 118.25;
    writer.bedSizeZ = 200;
    writer.resinVolume = 0x41200000;
    writer.resinWeight = 12.5F;
    DlpParameters& parameters = writer.fileStructure.parameters;
    parameters.thickness = "0.05";
    parameters.exposure_time = 25;
    parameters.first_exposure_time = 30;
    parameters.light_off_delay = 2;
    parameters.first_layer_count = static_cast<unsigned short>(bottomLayers);
    parameters.first_lift_distance = 6;
    parameters.first_lift_speed = 60;
    parameters.lifting_distance = 5;
    parameters.lifting_speed = 80;
    parameters.retract_speed = 150;
    parameters.brightnessPVM = 200;
    parameters.firstBrightnessPVM = 255;
    writer.fileStructure.sliceBasicParameters.enableAntiAliasing = 1;
}

}  // namespace vndlp::test
