/// An input as a row of choices.

#pragma once

#include "fuzz/harness.h"

#include <cstring>

namespace vndlp::fuzz {

/// Takes values from the front of an input; zeros where it has ended.
class Choices {
public:
    explicit Choices(const Bytes& input) : m_input(input) {}

    template <class Value>
    Value any() {
        Value value{};
        const std::size_t there = left() < sizeof value ? left() : sizeof value;
        std::memcpy(&value, m_input.data() + m_at, there);
        m_at += there;
        return value;
    }
    /// A number from 0 to `most`, at most 65535.
    unsigned int upTo(unsigned int most) {
        return (most < 256 ? any<std::uint8_t>() : any<std::uint16_t>()) % (most + 1);
    }
    std::size_t left() const { return m_input.size() - m_at; }

private:
    const Bytes& m_input;
    std::size_t m_at = 0;
};

}  // namespace vndlp::fuzz
