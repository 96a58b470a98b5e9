// kelvo::filesystem::FileStatus: the kind and access bits of what lies at a path.
#ifndef KELVO_FILESYSTEM_FILE_STATUS_H
#define KELVO_FILESYSTEM_FILE_STATUS_H

#include <kelvo/export.h>

#include <chrono>
#include <cstdint>

namespace kelvo::filesystem {

/// Kinds of file-system objects. The numeric values are part of the interface.
enum class FileType : std::uint32_t {
    none = 0,            ///< the status could not be obtained (missing file included)
    regularFile = 1,
    directory = 2,
    symbolicLink = 3,
    blockDevice = 4,
    characterDevice = 5,
    fifo = 6,
    unknown = 8,         ///< a status was obtained but matched no kind
};

/// The nine POSIX access bits, with the mode bits' own values, and the value
/// meaning that nothing is known.
enum class Permissions : std::uint32_t {
    noPermissions = 0,
    ownerRead = 0400,
    ownerWrite = 0200,
    ownerExecute = 0100,
    groupRead = 040,
    groupWrite = 020,
    groupExecute = 010,
    othersRead = 04,
    othersWrite = 02,
    othersExecute = 01,
    unknownPermissions = 0177777,
};

constexpr Permissions operator|(Permissions a, Permissions b) noexcept
{
    return static_cast<Permissions>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr Permissions operator&(Permissions a, Permissions b) noexcept
{
    return static_cast<Permissions>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
constexpr Permissions operator^(Permissions a, Permissions b) noexcept
{
    return static_cast<Permissions>(static_cast<std::uint32_t>(a) ^ static_cast<std::uint32_t>(b));
}
constexpr Permissions operator~(Permissions a) noexcept
{
    return static_cast<Permissions>(~static_cast<std::uint32_t>(a));
}
constexpr Permissions& operator|=(Permissions& a, Permissions b) noexcept { return a = a | b; }
constexpr Permissions& operator&=(Permissions& a, Permissions b) noexcept { return a = a & b; }
constexpr Permissions& operator^=(Permissions& a, Permissions b) noexcept { return a = a ^ b; }

/// Modification times: signed 64-bit microseconds since the Unix epoch.
using FileTime = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

/// A file's kind and access bits. Any value is stored as given.
class KELVO_FILESYSTEM_API FileStatus {
public:
    /// The default status, `FileStatus(FileType::none, Permissions::unknownPermissions)`,
    /// means that nothing is known.
    constexpr FileStatus(FileType fileType = FileType::none,
                         Permissions filePermissions = Permissions::unknownPermissions) noexcept
        : type(fileType), permissions(filePermissions)
    {
    }

    constexpr FileType getType() const noexcept { return type; }
    constexpr void setType(FileType value) noexcept { type = value; }
    constexpr Permissions getPermissions() const noexcept { return permissions; }
    constexpr void setPermissions(Permissions value) noexcept { permissions = value; }

    friend constexpr bool operator==(FileStatus const& a, FileStatus const& b) noexcept
    {
        return a.type == b.type && a.permissions == b.permissions;
    }
    friend constexpr bool operator!=(FileStatus const& a, FileStatus const& b) noexcept { return !(a == b); }

private:
    FileType type;
    Permissions permissions;
};

} // namespace kelvo::filesystem

#endif
