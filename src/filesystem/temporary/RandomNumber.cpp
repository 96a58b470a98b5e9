// One random 32-bit number from a Mersenne Twister freshly seeded by the system's random source.
#include "filesystem/temporary/RandomNumber.h"

#include <exception>
#include <random>

namespace kelvo::filesystem::detail {

namespace {

constexpr char kRandomSource[] = "/dev/urandom";

std::uint32_t drawSeed()
{
    try {
        std::random_device device(kRandomSource);
        return static_cast<std::uint32_t>(device());
    } catch (std::exception const&) {
        std::random_device device;
        return static_cast<std::uint32_t>(device());
    }
}

} // namespace

std::uint32_t drawRandomNumber()
{
    std::mt19937 engine(drawSeed());
    return static_cast<std::uint32_t>(engine());
}

} // namespace kelvo::filesystem::detail
