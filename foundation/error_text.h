#pragma once

/// Room for the longest error text.
constexpr unsigned kErrorTextSize = 128;

/// The system's text for an error number. szBuffer has kErrorTextSize bytes; the
/// result is in it or static, and valid as long as the buffer.
const char *KovaErrorText(int nError, char *szBuffer);
