/// V4 files as the commands see them.

#pragma once

#include "tools/formats/slice_file.h"

#include <vndlp/v4.h>

#include <mutex>

namespace vndlp::tools {

class V4File final : public SliceFile {
public:
    /// Throws Failure when the head is damaged.
    explicit V4File(const std::string& path);

    std::string format() const override { return "vndlpv4"; }
    int version() const override;
    int width() const override;
    int height() const override;
    int layerCount() const override;
    std::vector<Field> header() const override;
    std::vector<Field> parameters() const override;
    std::vector<Section> sections() const override;
    std::vector<Preview> previews() const override;
    Trailer trailer() const override;
    PrintSettings settings() const override;
    std::optional<double> volumeMl() const override;
    void readLayer(int index, GreyImage& out) override;
    LayerFacts layerFacts(int index) override;

    std::vector<Finding> verify();

    /// The bead mask of a layer: the one stored with it, else (`stored` is false then) the one its image gives.
    std::vector<unsigned char> beadMask(int index, bool& stored);

private:
    VNDLPV4::LayerDef& layerAt(int index) const;
    std::vector<unsigned char> readCode(int index);
    VNDLPV4::LampBeadCal& beadField();
    void checkLayer(int index, long long& end, std::vector<Finding>& findings);
    void checkSecondCopies(long long& end, std::vector<Finding>& findings);

    std::string m_path;
    mutable VNDLPV4::VNDLPV4Read m_reader;
    std::mutex m_mutex;
    std::vector<VNDLPV4::LayerDef*> m_layers;  // the reader's
    std::unique_ptr<VNDLPV4::LampBeadCal> m_field;
    long long m_fileSize = 0;
};

}  // namespace vndlp::tools
