#pragma once

/// Lets the process open as many descriptors as it may: each player costs one, and two for each
/// track over UDP.
void KovaRaiseDescriptorLimit();
