/// Black pictures of vendor files, spelt in a few bytes, so that inputs stay small enough to be mutated well.

#pragma once

#include "fuzz/harness.h"

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <utility>

namespace vndlp::fuzz {

/// What stands for the pictures of a header, and the bytes of each.
struct Pictures {
    const char* mark;
    std::initializer_list<std::size_t> sizes;

    /// The pictures as they stand in a file, each with its tag.
    Bytes bytes() const {
        Bytes all;
        for (const std::size_t size : sizes) {
            all.insert(all.end(), size, 0);
            all.insert(all.end(), {0x0D, 0x0A});
        }
        return all;
    }
};

/// The headers of the first, the second and line, and the third kind.
constexpr Pictures kPictures[] = {
    {"<pictures1>", {26912, 168200}}, {"<pictures2>", {26912, 168200, 168200}}, {"<pictures3>", {26912, 77168, 77168}}};

inline Bytes replaceFirst(const Bytes& in, const Bytes& from, const Bytes& to) {
    const auto at = std::search(in.begin(), in.end(), from.begin(), from.end());
    if (at == in.end()) return in;
    Bytes out(in.begin(), at);
    out.insert(out.end(), to.begin(), to.end());
    out.insert(out.end(), at + static_cast<std::ptrdiff_t>(from.size()), in.end());
    return out;
}

inline Bytes markOf(const Pictures& pictures) {
    return Bytes(pictures.mark, pictures.mark + std::strlen(pictures.mark));
}

/// The file an input stands for. An input without a mark is the file itself.
inline Bytes withPictures(const Bytes& input) {
    for (const Pictures& pictures : kPictures) {
        Bytes file = replaceFirst(input, markOf(pictures), pictures.bytes());
        if (file.size() != input.size()) return file;
    }
    return input;
}

/// The other way: a file with black pictures as an input.
inline Bytes withMarks(const Bytes& file) {
    // the first picture ends at the first byte behind its zeros; some may stand in front of it, too
    const auto smallest = static_cast<std::ptrdiff_t>(*kPictures[0].sizes.begin());
    const auto zeros = std::search_n(file.begin(), file.end(), smallest, 0);
    const auto tag = std::find_if(zeros, file.end(), [](unsigned char byte) { return byte != 0; });
    if (tag == file.end()) return file;
    const auto begin = tag - smallest;
    // the second kind's pictures begin with the first's
    for (const std::size_t kind : {1u, 2u, 0u}) {
        const Bytes pictures = kPictures[kind].bytes();
        const auto size = static_cast<std::ptrdiff_t>(pictures.size());
        if (file.end() - begin < size || !std::equal(pictures.begin(), pictures.end(), begin)) continue;
        const Bytes mark = markOf(kPictures[kind]);
        Bytes input(file.begin(), begin);
        input.insert(input.end(), mark.begin(), mark.end());
        input.insert(input.end(), begin + size, file.end());
        return input;
    }
    return file;
}

}  // namespace vndlp::fuzz
