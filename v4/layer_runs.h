/// Runs of a layer image on their way into a code and into a bead mask.

#pragma once

#include "vndlp/calibration.h"

#include "ctb/layer_codec.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace VNDLPV4 {

/// Takes runs and appends their code. A run longer than any that has a length in its code becomes several: only images
/// beyond the plain form's size hold such runs.
class RunCoder {
public:
    explicit RunCoder(std::vector<unsigned char>& code) : m_code(code) {}
    RunCoder(const RunCoder&) = delete;
    RunCoder& operator=(const RunCoder&) = delete;

    void take(const CTB::Run& run) {
        for (std::size_t left = run.count; left > 0;) {
            const std::size_t count = std::min(left, CTB::kLongestRun);
            m_out = CTB::putRun(run.grey, count, m_out);
            left -= count;
            if (m_out > m_block + sizeof m_block - CTB::kLongestRunCode) flush();
        }
    }

    /// Call behind the last run.
    void finish() { flush(); }

private:
    void flush() {
        m_code.insert(m_code.end(), m_block, m_out);
        m_out = m_block;
    }

    std::vector<unsigned char>& m_code;
    unsigned char m_block[1u << 14];
    unsigned char* m_out = m_block;
};

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

/// Splits pixels that come in pieces into runs, which go to `sink(CTB::Run)`; a run goes on from one piece to the next.
template <class Sink>
class RunSplitter {
public:
    explicit RunSplitter(Sink sink) : m_sink(std::move(sink)) {}
    RunSplitter(const RunSplitter&) = delete;
    RunSplitter& operator=(const RunSplitter&) = delete;

    void add(const unsigned char* pixels, std::size_t size) {
        const unsigned char* const end = pixels + size;
        for (const unsigned char* next = pixels; next != end;) {
            const unsigned char* const runEnd = CTB::endOfRun(next, end);
            const unsigned int grey = *next >> 1;
            if (grey != m_run.grey) {
                endRun();
                m_run.grey = grey;
            }
            m_run.count += static_cast<std::size_t>(runEnd - next);
            next = runEnd;
        }
    }

    /// Call behind the last piece.
    void finish() { endRun(); }

private:
    void endRun() {
        if (m_run.count > 0) m_sink(m_run);
        m_run.count = 0;
    }

    Sink m_sink;
    CTB::Run m_run{0, 0};
};

}  // namespace VNDLPV4
