#pragma once

#include "kova_live.h"
#include "publisher.h"
#include "sliding_rate.h"

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace kovastream {

/// A stream of the live server.
class LivePublication : public Publication {
public:
    /// Told of the server's handle for the stream whenever it is published, and of null before that
    /// one goes.
    using OnHandle = std::function<void(const LivePublication *, const KovaLiveStream *)>;

    /// `listing`: players are listed one by one.
    LivePublication(KovaLive *live, std::string uri, bool listing, OnHandle onHandle);
    ~LivePublication() override;
    LivePublication(const LivePublication &) = delete;
    LivePublication &operator=(const LivePublication &) = delete;

    const std::string &Uri() const
    {
        return m_uri;
    }

    void Publish(const Tracks &tracks) override;
    void Push(const Unit &unit, int64_t presentation) override;
    Served Look() override;

private:
    using Time = SlidingRate::Time;

    void Withdraw();
    void Add(const Tracks &tracks);
    KovaLiveTrack *AddTrack(const KovaLiveTrackConfig &config);
    void List(Time now, std::vector<Player> *players);

    KovaLive *const m_live;
    const std::string m_uri;
    const bool m_listing;
    const OnHandle m_onHandle;

    std::mutex m_mutex;
    KovaLiveStream *m_stream = nullptr;
    KovaLiveTrack *m_picture = nullptr;
    KovaLiveTrack *m_sound = nullptr;
    uint64_t m_bytesBefore = 0; ///< sent while it was published before
    uint64_t m_bytes = 0;       ///< sent, at the last look
    Time m_flowed{};            ///< when a look has found more
    SlidingRate m_out;
    std::map<uint64_t, SlidingRate> m_players; ///< by their numbers
};

} // namespace kovastream
