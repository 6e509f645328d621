/// Runs of a layer image on their way into a bead mask.

#pragma once

#include <vndlp/calibration.h>

#include "ctb/layer_codec.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace VNDLPV4 {

/// Takes the runs of an image and asks a bead field for the mask of the lit ones.
class RunMasker {
public:
    /// Resets the field and clears the mask.
    /// \param width pixels of a row of the image.
    RunMasker(LampBeadCal& beads, std::size_t width, std::vector<unsigned char>& mask)
        : m_beads(beads), m_width(width), m_mask(mask) {
        m_beads.reset();
        m_mask.assign(m_beads.m_maskBytes, 0);
    }
    RunMasker(const RunMasker&) = delete;
    RunMasker& operator=(const RunMasker&) = delete;

    void take(const CTB::Run& run) {
        if (run.grey == 0) endLit();
        m_position += run.count;
        if (run.grey == 0) m_litFrom = m_position;
    }

    /// Call behind the last run.
    void finish() { endLit(); }

private:
    /// Reports the lit pixels since the last dark one, row by row, as far as they lie on the field's screen.
    void endLit() {
        const auto screenWidth = static_cast<std::size_t>(std::max(m_beads.m_pixelsX, 0));
        const auto screenHeight = static_cast<std::size_t>(std::max(m_beads.m_pixelsY, 0));
        for (std::size_t from = m_litFrom; from < m_position && m_width != 0;) {
            const std::size_t row = from / m_width;
            if (row >= screenHeight) break;
            const std::size_t rowStart = row * m_width;
            const std::size_t to = std::min(m_position, rowStart + m_width);
            const std::size_t end = std::min(to - rowStart, screenWidth);
            if (from - rowStart < end) {
                const std::size_t screenRow = row * screenWidth;
                m_beads.getsubzonedata(static_cast<unsigned>(screenRow + from - rowStart),
                                       static_cast<unsigned>(screenRow + end), m_mask);
            }
            from = to;
        }
        m_litFrom = m_position;
    }

    LampBeadCal& m_beads;
    std::size_t m_width;
    std::vector<unsigned char>& m_mask;
    std::size_t m_position = 0;
    std::size_t m_litFrom = 0;
};

}  // namespace VNDLPV4
