// Small, real pictures for sample devices.
#pragma once

#include <cstdint>
#include <string>

namespace sim
{

// A grey baseline JPEG of 160 by 120 points whose stripes depend on `number`,
// with `number` in a comment segment too. About 300 bytes.
std::string makeJpeg(uint32_t number);

} // namespace sim
