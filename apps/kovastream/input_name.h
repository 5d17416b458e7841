#pragma once

#include "server_limits.h"

#include <string>
#include <vector>

namespace kovastream {

/// One stream as the command line names it.
struct InputName {
    std::string uri;
    std::vector<std::string> sources; ///< one, or the two of PICTURE+SOUND
};

/// Understands the arguments; without any it is the sample clip. Streams without a URI are called
/// live, live2 and so on, by their place. Throws Failure for a URI that players could not ask for,
/// or that a server with these limits does not publish.
std::vector<InputName> NameInputs(const std::vector<std::string> &arguments,
                                  const Limits &limits = {});

} // namespace kovastream
