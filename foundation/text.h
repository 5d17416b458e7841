#pragma once

#include <cstddef>
#include <string_view>

/// Copies text into a fixed field of nCapacity bytes, cut to fit and always
/// terminated. The rest of the field is left as it is.
void KovaTextCopy(char *szField, size_t nCapacity, std::string_view text);
void KovaTextCopy(char *szField, size_t nCapacity, const char *szText);

/// The text in a fixed field that may lack a terminator when it is full.
std::string_view KovaTextField(const char *szField, size_t nCapacity);

/// The text as it may be printed: '?' stands for each control byte (below 0x20, and
/// 0x7F). A value from the network could otherwise write log lines of its own.
/// Written to szShown, of nCapacity bytes, as KovaTextCopy does.
/// @return szShown; an empty text when there is no room at all.
const char *KovaTextPrintable(char *szShown, size_t nCapacity, std::string_view text);
const char *KovaTextPrintable(char *szShown, size_t nCapacity, const char *szText);

/// Appends a formatted text at *pLength of a buffer of nCapacity bytes and moves
/// *pLength. What does not fit with its terminator is left out whole.
/// @return whether it was appended.
bool KovaTextAppend(char *szBuffer, size_t nCapacity, size_t *pLength, const char *szFormat, ...)
    __attribute__((format(printf, 4, 5)));
