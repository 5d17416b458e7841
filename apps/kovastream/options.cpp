#include "options.h"

#include "failure.h"

#include <CLI/CLI.hpp>

#include <arpa/inet.h>

namespace kovastream {

namespace {

constexpr char kAbout[] = "Streams files, pipes and encoders with H.264 and AAC to RTSP players.";

constexpr char kExamples[] =
    R"(INPUT is a file (mp4, mkv, ts, flv, h264, aac, ...), a FIFO, - for standard input, or a
network address that FFmpeg's libraries open. PICTURE+SOUND joins two inputs in one stream.
Without INPUT the sample clip is streamed. Streams without a URI are called live, live2, ...

Examples:
  kovastream                                    the sample, at rtsp://127.0.0.1:8554/live
  kovastream film.mp4                           a file, again and again
  kovastream --once --port 554 film.mp4         a file once, then exit
  kovastream main=hd.mkv sub=sd.mkv             two streams
  kovastream --fps 30 camera.h264+camera.aac    raw picture and sound, joined
  ffmpeg -i film.avi -c:v libx264 -bf 0 -g 50 -c:a aac -f mpegts - | kovastream -
  mkfifo /tmp/cam && kovastream cam=/tmp/cam    whatever an encoder writes to /tmp/cam
  kovastream --status json film.mp4 | jq .clients)";

std::string CheckAddress(const std::string &text)
{
    in_addr parsed = {};
    if (inet_pton(AF_INET, text.c_str(), &parsed) == 1) {
        const in_addr_t address = ntohl(parsed.s_addr);
        if (!IN_MULTICAST(address) && address != INADDR_BROADCAST)
            return "";
    }
    return "'" + text +
           "' is no IPv4 address to listen on; give one of this machine, such as 192.168.1.5";
}

std::string CheckForm(const std::string &text)
{
    if (text == "line" || text == "json" || text == "none")
        return "";
    return "'" + text + "' is none of line, json and none";
}

CLI::Validator Between(double least, double most, const std::string &what)
{
    return CLI::Validator(
        [least, most, what](const std::string &text) {
            double value = 0;
            if (CLI::detail::lexical_cast(text, value) && value >= least && value <= most)
                return std::string();
            return "'" + text + "' is not " + what;
        },
        "");
}

void Declare(CLI::App *app, Options *options, std::vector<std::string> *inputs, bool *once)
{
    app->add_option("INPUT", *inputs, "[URI=]INPUT, as many as there shall be streams")
        ->type_name("");
    app->add_option("--address", options->address, "Listen on this IPv4 address only")
        ->check(CheckAddress)
        ->type_name("IPV4");
    app->add_option("--port", options->port, "TCP port")
        ->check(Between(1, 65535, "a port from 1 to 65535"))
        ->type_name("PORT")
        ->capture_default_str();
    app->add_option("--max-clients", options->maxClients, "Most players at a time")
        ->check(Between(1, 1024,
                        "a number from 1 to 1024; start a second kovastream on "
                        "another port for more players"))
        ->type_name("N")
        ->capture_default_str();
    CLI::Option *loop = app->add_flag("--loop", "Begin again at the end of the input (default)");
    app->add_flag("--once", *once, "Exit when the input has ended")->excludes(loop);
    app->add_flag("--strict", options->strict,
                  "End at the first input that fails, instead of waiting for it");
    app->add_option("--fps", options->fps, "Pictures a second of raw video, which has no timing")
        ->check(Between(0.1, 1000, "a rate from 0.1 to 1000"))
        ->type_name("RATE");
    app->add_option("--duration", options->duration, "Exit after so many seconds")
        ->check(Between(0.1, 1e9, "a number of seconds"))
        ->type_name("SECONDS");
    app->add_option("--log-level", options->logLevel, "Lines of the library: 1 failures to 5 all")
        ->check(Between(0, 5, "a level from 0 to 5"))
        ->type_name("LEVEL")
        ->capture_default_str();
    app->add_option("--log", options->logFile, "Append the library's lines to this file")
        ->type_name("FILE");
    app->add_option_function<std::string>(
           "--status",
           [options](const std::string &form) {
               options->status = form == "json"   ? StatusForm::Json
                                 : form == "none" ? StatusForm::None
                                                  : StatusForm::Line;
           },
           "line (default), json or none")
        ->check(CheckForm)
        ->type_name("FORM");
    app->set_version_flag("--version", std::string("kovastream ") + KOVASTREAM_VERSION);
}

} // namespace

std::optional<Options> ParseOptions(int argc, char **argv)
{
    Options options;
    std::vector<std::string> inputs;
    bool once = false;
    CLI::App app(kAbout, "kovastream");
    app.get_formatter()->column_width(32);
    app.footer(kExamples);
    Declare(&app, &options, &inputs, &once);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &answer) {
        app.exit(answer);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        throw Failure(std::string(error.what()) + " (kovastream --help shows all options)");
    }
    options.loop = !once;
    options.inputs = NameInputs(inputs);
    return options;
}

} // namespace kovastream
