// The same pictures on GStreamer's RTSP server library, to compare with:
//
//     kova_gst_server [-n 0]
//
// Publishes s1 with packets of the library's size; with -n 0 nothing is made. Obeys lines as every
// server here does (server_lines.h).
#include "bench/descriptor_limit.h"
#include "bench/server_lines.h"
#include "bench/stream_feed.h"

#include <gst/app/gstappsrc.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace {

constexpr const char *kPipeline =
    "( appsrc name=pictures is-live=true do-timestamp=true format=time "
    "caps=video/x-h264,stream-format=byte-stream,alignment=au ! rtph264pay name=pay0 mtu=1412 )";
constexpr int kBacklog = 128;

std::mutex s_mutex;
GstElement *s_pPictures = nullptr; ///< while somebody plays

void OnMedia(GstRTSPMediaFactory *, GstRTSPMedia *pMedia, gpointer)
{
    GstElement *pBin = gst_rtsp_media_get_element(pMedia);
    const std::lock_guard<std::mutex> lock(s_mutex);
    gst_clear_object(&s_pPictures);
    s_pPictures = gst_bin_get_by_name(GST_BIN(pBin), "pictures");
    gst_object_unref(pBin);
}

void Push(bool bPicture, const std::string &unit, uint64_t)
{
    const std::lock_guard<std::mutex> lock(s_mutex);
    if (bPicture && s_pPictures != nullptr)
        gst_app_src_push_buffer(GST_APP_SRC(s_pPictures),
                                gst_buffer_new_memdup(unit.data(), unit.size()));
}

} // namespace

int main(int nArguments, char **pArguments)
{
    const bool bNothing = nArguments > 2 && strcmp(pArguments[2], "0") == 0;
    FILE *pReplies = KovaOpenReplies();
    KovaRaiseDescriptorLimit();
    gst_init(nullptr, nullptr);
    GstRTSPServer *pServer = gst_rtsp_server_new();
    gst_rtsp_server_set_address(pServer, "127.0.0.1");
    gst_rtsp_server_set_service(pServer, "0");
    gst_rtsp_server_set_backlog(pServer, kBacklog);
    GstRTSPMediaFactory *pFactory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(pFactory, kPipeline);
    gst_rtsp_media_factory_set_shared(pFactory, TRUE);
    g_signal_connect(pFactory, "media-configure", G_CALLBACK(OnMedia), nullptr);
    GstRTSPMountPoints *pMounts = gst_rtsp_server_get_mount_points(pServer);
    gst_rtsp_mount_points_add_factory(pMounts, "/s1", pFactory);
    g_object_unref(pMounts);
    if (pReplies == nullptr || gst_rtsp_server_attach(pServer, nullptr) == 0)
        return EXIT_FAILURE;

    GMainLoop *pLoop = g_main_loop_new(nullptr, FALSE);
    std::thread loop([=] { g_main_loop_run(pLoop); });
    KovaStreamFeed feed(Push, false);
    if (!bNothing)
        feed.Start();
    const int nPort = gst_rtsp_server_get_bound_port(pServer);
    KovaObeyLines(pReplies, static_cast<unsigned>(nPort),
                  [&feed](unsigned nRate) { feed.SetRate(nRate); });
    feed.Stop();
    g_main_loop_quit(pLoop);
    loop.join();
    return EXIT_SUCCESS;
}
