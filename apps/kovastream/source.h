#pragma once

#include <string>

namespace kovastream {

/// Where an input comes from, which decides how it is opened and what its end means.
enum class SourceKind {
    File,    ///< can be read again from its beginning
    Fifo,    ///< the next writer begins anew
    Stdin,   ///< ends once
    Network, ///< everything else that FFmpeg opens by a name
};

/// Looks at an input without opening it. Throws Failure for one that cannot be opened (now).
SourceKind KindOf(const std::string &input);

/// Throws Failure for a network address of a kind that will never be opened.
void CheckScheme(const std::string &input);

/// An input as lines show it: without the password that a network address may have.
std::string Shown(const std::string &input);

/// The command that turns an input into what can be streamed; for advice to the user.
std::string TranscodeAdvice(const std::string &input, bool copyPicture, bool copySound);

} // namespace kovastream
