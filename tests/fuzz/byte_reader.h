#pragma once

#include <QByteArray>
#include <QChar>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstring>

/// Takes a fuzzer's bytes apart, from the front. Behind the last one come zeros, so every choice's first case
/// should be one that ends.
class ByteReader
{
public:
    ByteReader(std::uint8_t const* data, std::size_t size) : m_position(data), m_end(data + size) {}

    bool atEnd() const { return m_position == m_end; }

    std::uint8_t byte() { return atEnd() ? std::uint8_t(0) : *m_position++; }
    bool truth() { return (byte() & 1) != 0; }
    /// One of the numbers from 0 to @p count - 1.
    int below(int count) { return byte() % count; }

    /// A number with all of its bits.
    template <class Number> Number number()
    {
        Number value{};
        std::uint8_t bytes[sizeof value];
        for (auto& one : bytes)
            one = byte();
        std::memcpy(&value, bytes, sizeof value);
        return value;
    }

    /// Up to @p longest bytes, as many as the next one says.
    QByteArray bytes(int longest)
    {
        QByteArray taken(below(longest + 1), '\0');
        for (auto& one : taken)
            one = static_cast<char>(byte());
        return taken;
    }

    /// Up to @p longest characters, half ones among them.
    QString text(int longest)
    {
        QString taken;
        for (int left = below(longest + 1); left > 0; --left) {
            // Mostly one that can be typed or that means something to somebody.
            auto const plain = byte();
            taken += plain < 0xF0 ? QChar(ushort(plain)) : QChar(number<ushort>());
        }
        return taken;
    }

private:
    std::uint8_t const* m_position;
    std::uint8_t const* const m_end;
};
