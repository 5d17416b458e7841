#include "input_name.h"

#include "failure.h"

#include <algorithm>
#include <filesystem>

namespace kovastream {

namespace {

constexpr size_t kLongestUri = 255;
constexpr size_t kLongestAnyUri = 1024;
constexpr size_t kShortestUri = 2;
constexpr char kUriCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-/";

bool Exists(const std::string &path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

bool HasExtension(const std::string &path)
{
    return std::filesystem::path(path).has_extension();
}

/// The place of the "=" behind a URI; npos when the argument is an input alone. An "=" in a path
/// or a network address does not count.
size_t EndOfUri(const std::string &argument)
{
    const size_t end = argument.find('=');
    if (end == std::string::npos || Exists(argument))
        return std::string::npos;
    if (argument.substr(0, end).find("://") != std::string::npos)
        return std::string::npos;
    return end;
}

/// Whether the last segment is that of a track's address: "track" and a number from 1 up.
bool EndsLikeATrack(const std::string &uri)
{
    constexpr char kTrack[] = "track";
    constexpr size_t kTrackSize = sizeof(kTrack) - 1;
    constexpr size_t kMostDigits = 9;
    const std::string last = uri.substr(uri.rfind('/') + 1); // all of it without a slash
    const std::string number = last.substr(std::min(last.size(), kTrackSize));
    return last.compare(0, kTrackSize, kTrack) == 0 && !number.empty() &&
           number.size() <= kMostDigits && number.front() != '0' &&
           number.find_first_not_of("0123456789") == std::string::npos;
}

/// The classic server looks for these words in whole requests, so a path must not contain them.
void CheckUri(const std::string &uri, const Limits &limits)
{
    const auto refuse = [&uri](const std::string &why) {
        throw Failure("the URI '" + uri + "' cannot be published: " + why);
    };
    const size_t longest = limits.anyUri ? kLongestAnyUri : kLongestUri;
    if (uri.size() < kShortestUri || uri.size() > longest)
        refuse("it must have 2 to " + std::to_string(longest) + " characters");
    if (uri.find_first_not_of(kUriCharacters) != std::string::npos)
        refuse("use letters, digits and . _ - / only");
    if (uri.front() == '/' || uri.back() == '/')
        refuse("leave the slash at its beginning or end away");
    if (!limits.anyUri && EndsLikeATrack(uri))
        refuse("players would take its end for a track");
    for (const char *word : {"Session", "client_port", "interleaved", "RTSP/"}) {
        if (uri.find(word) != std::string::npos)
            refuse("it must not contain '" + std::string(word) + "'");
    }
}

std::vector<std::string> SplitSources(const std::string &input)
{
    if (input.find("://") != std::string::npos || Exists(input))
        return {input};
    // A plus sign may be part of a name: the first cut that leaves two inputs that exist counts.
    for (size_t at = input.find('+'); at != std::string::npos; at = input.find('+', at + 1)) {
        const std::string first = input.substr(0, at);
        const std::string second = input.substr(at + 1);
        if (Exists(first) && Exists(second))
            return {first, second};
    }
    // One that is not there yet is waited for. Names with an end on both sides of a plus sign are
    // two.
    for (size_t at = input.find('+'); at != std::string::npos; at = input.find('+', at + 1)) {
        const std::string first = input.substr(0, at);
        const std::string second = input.substr(at + 1);
        if (HasExtension(first) && HasExtension(second))
            return {first, second};
    }
    return {input};
}

} // namespace

std::vector<InputName> NameInputs(const std::vector<std::string> &arguments, const Limits &limits)
{
    std::vector<InputName> names;
    if (arguments.empty()) {
        const std::string clip = std::string(KOVASTREAM_SAMPLES) + "/clip";
        if (!Exists(clip + ".h264"))
            throw Failure("the sample clip is not at " + clip + ".h264; name an INPUT");
        names.push_back({"live", {clip + ".h264", clip + ".aac"}});
    }
    for (const std::string &argument : arguments) {
        const size_t end = EndOfUri(argument);
        InputName name;
        const std::string input = end == std::string::npos ? argument : argument.substr(end + 1);
        if (end != std::string::npos)
            name.uri = argument.substr(0, end);
        else
            name.uri = names.empty() ? "live" : "live" + std::to_string(names.size() + 1);
        CheckUri(name.uri, limits);
        if (input.empty())
            throw Failure("no input stands behind '" + argument + "'");
        name.sources = SplitSources(input);
        const auto same = [&name](const InputName &other) { return other.uri == name.uri; };
        if (std::any_of(names.begin(), names.end(), same))
            throw Failure("two streams have the URI '" + name.uri +
                          "': give each its own, as in main=a.mp4 sub=b.mp4");
        names.push_back(name);
    }
    const auto reads = [](const InputName &name) { return name.sources.front() == "-"; };
    if (std::count_if(names.begin(), names.end(), reads) > 1)
        throw Failure("only one input can be standard input (-)");
    return names;
}

} // namespace kovastream
