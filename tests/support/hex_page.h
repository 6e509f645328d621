/// The bytes of the worked file on a format's page.

#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace vndlp::test {

/// The bytes of a page's first hex block. Its lines are an offset, bytes and a remark, each two spaces apart, or a
/// remark behind a semicolon; "00 x COUNT" stands for that many zeros.
inline std::vector<unsigned char> hexBlock(const std::string& page) {
    std::ifstream in(page);
    std::vector<unsigned char> bytes;
    std::string line;
    while (std::getline(in, line) && line != "```hex") continue;
    while (std::getline(in, line) && line != "```") {
        if (line.front() == ';') continue;
        EXPECT_EQ(std::stoul(line.substr(0, 4), nullptr, 16), bytes.size()) << line;
        std::istringstream row(line.substr(6, line.find("  ", 6) - 6));
        for (std::string word; row >> word;) {
            if (word == "x") {
                std::size_t count = 0;
                row >> count;
                bytes.insert(bytes.end(), count - 1, 0);
            } else {
                bytes.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
            }
        }
    }
    return bytes;
}

}  // namespace vndlp::test
