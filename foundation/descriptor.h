#pragma once

/// Moves a descriptor that has one of the standard numbers, 0 to 2, to a higher
/// one that is close-on-exec. A host that closed its standard streams hands those
/// numbers out again, and whatever it or the library prints would go out on the
/// connection that got one; on a listening socket it raises SIGPIPE.
/// @return the descriptor, moved or not; -1 when it could not be moved (errno
///         tells why) and is closed, or when it was negative.
int KovaDescriptorRaise(int nDescriptor);
