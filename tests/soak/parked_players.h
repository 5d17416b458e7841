#pragma once

#include "tests/soak/soak_player.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

/// Players that have left without TEARDOWN, until the server has noticed. Those
/// that it can only notice by their silence are made to expire: their sessions'
/// time is over at once instead of after a minute.
class KovaParkedPlayers {
public:
    explicit KovaParkedPlayers(const KovaSoakStage &stage);
    ~KovaParkedPlayers();
    KovaParkedPlayers(const KovaParkedPlayers &) = delete;
    KovaParkedPlayers &operator=(const KovaParkedPlayers &) = delete;

    void Add(std::unique_ptr<KovaSoakPlayer> player);
    /// Waits until all are gone; false when some stay for too long.
    bool WaitEmpty(int nMilliseconds);

private:
    struct Parked {
        std::unique_ptr<KovaSoakPlayer> player;
        std::chrono::steady_clock::time_point since;
    };
    void Run();
    void Look();
    bool IsGone(const Parked &parked);

    const KovaSoakStage m_stage;
    std::mutex m_mutex;
    std::vector<Parked> m_parked;
    std::atomic<bool> m_bEnd{false};
    std::thread m_thread;
};
