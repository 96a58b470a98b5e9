// Name case and composition correction: the spelling of a path as it is on disk, found element by element in directory listings.
#include <kelvo/filesystem/DirectoryIterator.h>
#include <kelvo/filesystem/Operations.h>

#include "filesystem/path/ParentChain.h"
#include "filesystem/path/PathInternal.h"
#include "filesystem/posix/System.h"

#include <string>
#include <string_view>
#include <utility>

namespace kelvo::filesystem {

namespace {

using detail::ParentChain;

/// The corrected path as it grows from the top of the walk down, one element
/// at a time. The text grows in place in a path whose native form is made
/// from the text and never asked for, and the native form in a string beside
/// it, so that each element costs about its own length however long the path
/// already is.
class CorrectedPath {
public:
    /// Starts from the directory `text` whose native form is `native`.
    CorrectedPath(Path text, std::string_view native, bool carried)
        : text(std::move(text)), native(native), carried(carried)
    {
    }

    /// Looks `name` up in the listing of the directory built so far, with the
    /// tolerant equality, and appends the first matching entry's own name (its
    /// bytes as the listing gave them); when the directory cannot be listed,
    /// appends `name` as given.
    /// @returns false when the directory was listed and no entry matches.
    bool appendMatching(Path const& name, std::string_view nameNative, bool nameCarried)
    {
        // Where nothing can be reached at the directory's native form it
        // cannot be listed either: the name is kept at the cost of one status
        // call, without a copy of the directory for a listing. So the
        // elements past the system's length limit cost no more than their
        // own length each.
        if (posix::canStat(native.c_str())) {
            DirectoryIterator entries{directory()};
            if (entries.canIterate()) {
                DirectoryIterator const end;
                // The first match wins, even when a later entry matches exactly.
                for (; *entries != *end; ++entries) {
                    Path const entryName = entries->getPath().filename();
                    if (entryName == name) {
                        bool const entryCarried = PathNativeAccess::nativeToCarry(entryName) != nullptr;
                        std::string const& entryNative = PathNativeAccess::native(entryName);
                        String const& entryText = PathNativeAccess::text(entryName);
                        append(PathNativeAccess::fromPiece(entryText.data(), entryText.size()), entryNative,
                               entryCarried);
                        return true;
                    }
                }
                return false;
            }
        }
        append(name, nameNative, nameCarried);
        return true;
    }

    /// @returns the corrected path, with the native form built beside it.
    Path take()
    {
        detail::OwnedText owned(detail::acquireText());
        owned->assign(PathNativeAccess::text(text));
        if (!carried)
            return PathNativeAccess::adopt(std::move(owned));
        detail::OwnedNative ownedNative(detail::acquireNative());
        ownedNative->assign(native);
        return PathNativeAccess::adopt(std::move(owned), std::move(ownedNative));
    }

private:
    using String = kelvo::unicode::String;

    /// @returns a copy of the directory built so far, for a listing.
    Path directory() const
    {
        detail::OwnedText owned(detail::acquireText());
        owned->assign(PathNativeAccess::text(text));
        detail::OwnedNative ownedNative(detail::acquireNative());
        ownedNative->assign(native);
        return PathNativeAccess::adopt(std::move(owned), std::move(ownedNative));
    }

    /// Joins `name` as `operator/` does, and its native form in step: the
    /// join of the texts decides whether a separator was added or dropped,
    /// and the native form, whose separators match the text's, follows suit.
    void append(Path const& name, std::string_view nameNative, bool nameCarried)
    {
        std::size_t const before = text.size();
        text /= name;
        std::size_t const after = text.size();
        if (before == 0) {
            native.assign(nameNative);
        } else {
            if (after == before + name.size() + 1)
                native.push_back('/');
            else if (after + 1 == before + name.size())
                native.pop_back();
            native.append(nameNative);
        }
        carried = carried || nameCarried;
    }

    Path text;
    std::string native;
    bool carried;
};

/// Corrects `path` from the first existing ancestor (`checkAll` false) or from
/// the root (`checkAll` true) down, each element looked up in the directory
/// that the elements above it produced. A loop over the chain of parents, not
/// a recursion: the depth of a path costs no machine stack, and no level holds
/// a copy of its parent.
/// @returns the corrected path, or an empty path when an element has no match.
Path findSimilarNameHelper(Path const& path, bool checkAll)
{
    if (path.empty())
        return Path();
    ParentChain chain(path);
    // The climb: `top` is the highest link whose name is looked up; its parent
    // is the directory where the descent starts.
    std::size_t top = 0;
    for (;;) {
        // With the flag false, a climb that reaches the empty path (it never
        // exists) finds nothing.
        if (chain.isEmpty(top))
            return Path();
        std::size_t const parent = top + 1;
        if (checkAll ? chain.isItsOwnRootPath(parent) : chain.exists(parent))
            break;
        top = parent;
    }
    CorrectedPath corrected(chain.text(top + 1), chain.native(top + 1), chain.carriesNative());
    for (std::size_t level = top + 1; level-- > 0;) {
        if (!corrected.appendMatching(chain.filenameText(level), chain.filenameNative(level), chain.carriesNative()))
            return Path();
    }
    return corrected.take();
}

} // namespace

Path findSimilarName(Path const& path, bool checkAll)
{
    if (!checkAll && exists(path))
        return path;
    return findSimilarNameHelper(path, checkAll);
}

bool correctFileCaseAndComposition(Path& path, bool checkAll)
{
    Path candidate = (!checkAll && exists(path)) ? path : findSimilarNameHelper(path, checkAll);
    if (candidate.empty())
        return false;
    path = std::move(candidate);
    return true;
}

} // namespace kelvo::filesystem
