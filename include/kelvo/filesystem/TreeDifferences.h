// kelvo::filesystem::differencesBetween: what differs between two directory trees, entry by entry, with names paired the way paths compare.
#ifndef KELVO_FILESYSTEM_TREE_DIFFERENCES_H
#define KELVO_FILESYSTEM_TREE_DIFFERENCES_H

#include <kelvo/export.h>
#include <kelvo/filesystem/Failure.h>
#include <kelvo/filesystem/FileStatus.h>
#include <kelvo/filesystem/Path.h>

#include <vector>

namespace kelvo::filesystem {

/// What one difference between two trees is.
enum class DifferenceKind {
    /// The entry is in the first tree only (`second` is empty). Its contents,
    /// for a directory, are not listed one by one.
    onlyInFirst,
    /// The entry is in the second tree only (`first` is empty).
    onlyInSecond,
    /// Both trees hold the entry, as objects of different kinds (a regular
    /// file against a directory, a FIFO against a regular file, ...).
    differentKinds,
    /// Two regular files whose bytes differ, or two symbolic links (compared
    /// without following them) whose targets differ as text.
    differentContents,
    /// Two entries of the same kind whose nine access bits differ; only
    /// looked for on request (`DifferenceOptions::comparePermissions`).
    differentPermissions,
    /// Two entries of the same kind whose modification times differ, to the
    /// microsecond; only looked for on request
    /// (`DifferenceOptions::compareTimes`).
    differentTimes,
    /// Two names that pair (equal ignoring letter case and Unicode
    /// composition) are spelt with different bytes: "copyright" against
    /// "COPYRIGHT", an NFC name against its NFD twin. The pair is then
    /// compared as any other, so more differences of it may follow.
    differentSpelling,
};

/// One difference between two trees.
struct TreeDifference {
    /// What differs.
    DifferenceKind kind = DifferenceKind::onlyInFirst;
    /// The entry's path in the first tree: the first root as it was given,
    /// then the names that lead to the entry with the bytes the first tree's
    /// listings gave them. Empty for `onlyInSecond`.
    Path first;
    /// The entry's path in the second tree, made the same way. Empty for
    /// `onlyInFirst`.
    Path second;
    /// The kind of the first entry as the comparison saw it: its own kind (a
    /// link is `symbolicLink`), or with `followSymbolicLinks` the kind of
    /// what a link leads to (a link that leads nowhere stays
    /// `symbolicLink`). A socket, which has no `FileType` of its own, is
    /// `unknown`. `none` for `onlyInSecond`.
    FileType firstType = FileType::none;
    /// The kind of the second entry, as `firstType`; `none` for
    /// `onlyInFirst`.
    FileType secondType = FileType::none;
};

/// What `differencesBetween` compares besides names, kinds and contents.
struct DifferenceOptions {
    /// Report entries of the same kind whose access bits differ.
    bool comparePermissions = false;
    /// Report entries of the same kind whose modification times differ
    /// (directories included: a directory's time changes when an entry is
    /// added to it or removed).
    bool compareTimes = false;
    /// Take every symbolic link below the roots for what it leads to: a link
    /// to a file is compared as that file, a link to a directory is entered.
    /// A link that leads nowhere, and one that leads back to a directory
    /// being compared, is a failure (its path and reason in `failures`) and
    /// its pair is not compared. Off: links are compared as links, by the
    /// text they hold, and never entered.
    bool followSymbolicLinks = false;
};

/// Compares the directory trees `first` and `second` (each followed when it
/// is itself a symbolic link) and returns every difference found.
///
/// Names are paired the way `PathLess` orders them: a name pairs with the
/// other tree's name that is equal ignoring letter case and composition, so
/// "copyright" against "COPYRIGHT" is one entry (reported as
/// `differentSpelling`), not two. When one directory holds several names
/// that are equal that way ("x" and "X"), names with the very same bytes on
/// both sides pair, and the others of the group are reported as on one side
/// only.
///
/// Regular files are compared byte by byte (files of different sizes
/// without being read), symbolic links by the text they hold, directories
/// by comparing what they hold. A FIFO, a socket or a device is never
/// opened: it compares by its kind alone (two FIFOs are the same, so are
/// /dev/zero and /dev/null), so nothing blocks the comparison. The kinds of
/// entries come from the listings where they tell them, so that an entry is
/// looked up by name only when links are followed or when permissions or
/// times are asked for.
///
/// Order: the walk's. The entries of a directory come in `PathLess` order of
/// their names (within a group of names equal that way, in byte order of
/// their spellings), and the differences found below a
/// pair of directories come right after that pair's own, before the next
/// name of their directory. The walk holds a bounded number of descriptors
/// and never recurses on the machine stack, whatever the depth.
///
/// A directory that cannot be listed, a file that cannot be opened or read,
/// a link that cannot be read or followed: each is a failure, appended to
/// `failures` when it is given (the call, the reason and the entry's path;
/// also in the thread's failure record as it happens), and the rest is
/// compared. What could not be read is left out: a directory that could not
/// be listed on one side has its contents compared on neither.
/// @returns the differences found; empty when the trees are the same, and
/// also when a root cannot be opened as a directory (a missing path, a file,
/// no permission: then `failures` holds why).
KELVO_FILESYSTEM_API std::vector<TreeDifference> differencesBetween(Path const& first, Path const& second,
                                                                    DifferenceOptions const& options = DifferenceOptions(),
                                                                    std::vector<Failure>* failures = nullptr);

} // namespace kelvo::filesystem

#endif
