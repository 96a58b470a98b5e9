// kelvo_private::filesystem::compare: the tolerant comparison behind every path comparison.
#ifndef KELVO_FILESYSTEM_PRIVATE_COMPARE_H
#define KELVO_FILESYSTEM_PRIVATE_COMPARE_H

#include <kelvo/export.h>
#include <kelvo/text/String.h>

namespace kelvo_private::filesystem {

/// Compares two texts ignoring letter case and Unicode composition.
///
/// Both are brought to Normalization Form D; at the first position where the
/// code points differ even after case folding, the raw (unfolded) code points
/// decide. So "a" < "b" and "A" < "b", but "a" > "B" while "B" equals "b".
/// Kept: the order is not transitive across letter case (see
/// docs/odd-behaviours.md, 'The ordering is not transitive across letter
/// case'). A shorter text that is a prefix of a longer one sorts first.
/// @returns -1, 0 or 1.
KELVO_FILESYSTEM_API int compare(kelvo::unicode::String const& a, kelvo::unicode::String const& b);

} // namespace kelvo_private::filesystem

#endif
