#include "simdevice/jpeg.h"

namespace sim
{

namespace
{

constexpr unsigned kWidth = 160;
constexpr unsigned kHeight = 120;
constexpr unsigned kBlocks = (kWidth / 8) * (kHeight / 8);

// Bits of the entropy-coded part, with the zero byte that has to follow 0xFF.
class BitWriter
{
  public:
    void put(uint32_t bits, int count)
    {
        while (count-- > 0) {
            const uint32_t bit = bits >> count & 1U;
            m_byte = static_cast<uint8_t>(uint32_t{m_byte} << 1 | bit);
            if (++m_filled == 8) {
                flushByte();
            }
        }
    }
    std::string finish()
    {
        while (m_filled != 0) {
            put(1, 1);
        }
        return std::move(m_out);
    }

  private:
    void flushByte()
    {
        m_out.push_back(static_cast<char>(m_byte));
        if (m_byte == 0xFF) {
            m_out.push_back('\0');
        }
        m_byte = 0;
        m_filled = 0;
    }
    std::string m_out;
    uint8_t m_byte = 0;
    int m_filled = 0;
};

void segment(std::string &out, uint8_t marker, const std::string &body)
{
    const size_t length = body.size() + 2;
    out += '\xFF';
    out += static_cast<char>(marker);
    out += static_cast<char>(length >> 8);
    out += static_cast<char>(length & 0xFF);
    out += body;
}

std::string quantisation(uint8_t step)
{
    std::string body(1, '\0');
    body.append(64, static_cast<char>(step));
    return body;
}

// A Huffman table in which the symbols have the codes 0, 10, 110, ...
std::string huffman(uint8_t id, const std::string &symbols)
{
    std::string body(1, static_cast<char>(id));
    for (size_t length = 1; length <= 16; length++) {
        body += static_cast<char>(length <= symbols.size() ? 1 : 0);
    }
    return body + symbols;
}

// Each block has only its mean; every few blocks the mean steps up or down by
// one quantum. Codes: 0 = unchanged, 10 = step of category 4; 0 = end of block.
std::string stripes(uint32_t number)
{
    BitWriter bits;
    const unsigned every = 3 + number % 17;
    bool up = true;
    for (unsigned block = 0; block < kBlocks; block++) {
        if (block % every == 0) {
            bits.put(0b10, 2);
            bits.put(up ? 0b1000 : 0b0111, 4); // +8 or -8
            up = !up;
        } else {
            bits.put(0, 1);
        }
        bits.put(0, 1);
    }
    return bits.finish();
}

} // namespace

std::string makeJpeg(uint32_t number)
{
    using namespace std::string_literals;
    std::string out = "\xFF\xD8"s;
    segment(out, 0xE0, "JFIF\0\x01\x01\0\0\x01\0\x01\0\0"s);
    segment(out, 0xFE, "sample picture " + std::to_string(number));
    segment(out, 0xDB, quantisation(static_cast<uint8_t>(8 + number * 7 % 90)));
    std::string frame = "\x08"s;
    for (const unsigned value : {kHeight, kWidth}) {
        frame += static_cast<char>(value >> 8);
        frame += static_cast<char>(value & 0xFF);
    }
    segment(out, 0xC0, frame + "\x01\x01\x11\0"s);
    segment(out, 0xC4, huffman(0x00, "\x00\x04"s));
    segment(out, 0xC4, huffman(0x10, "\x00"s));
    segment(out, 0xDA, "\x01\x01\0\0\x3F\0"s);
    return out + stripes(number) + "\xFF\xD9"s;
}

} // namespace sim
