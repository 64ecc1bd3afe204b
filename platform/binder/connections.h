// The connections of a server: how many each user may hold, and which request is served next.
//
// A user is one uid, or all uids of one range of subordinate ids, which belong to one account. The
// limits reserve places that no single account can take, and places that only root can take. Users
// take turns, and so do the connections of a user: a user with many connections is served no more
// often than a user with one.
//
// A connection with a reply that its peer has not received is never closed to make room: the kernel
// charges the reply to this process until the peer receives it or closes its socket.
//
// The class owns the descriptors, does not wait for events and does not use epoll. Only one thread
// may use an object.
#pragma once

#include <base/unique_fd.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <optional>

namespace binder {

class Connections {
  public:
    static constexpr uint32_t kPlaces = 256;

    // Number of the new connection, below kPlaces, of a peer with this uid. If a limit is reached,
    // closes another connection to make room, or closes this one and returns an empty optional.
    [[nodiscard]] std::optional<uint32_t> Admit(base::UniqueFd fd, uid_t uid, int64_t now_ms);
    void Close(uint32_t number);

    // False for a closed connection; an event may still name its number.
    bool Holds(uint32_t number) const { return connections_[number].fd.get() >= 0; }
    int Fd(uint32_t number) const { return connections_[number].fd.get(); }
    uint32_t Count() const { return count_; }

    // A held-back connection is not served until its peer receives the last reply.
    bool HeldBack(uint32_t number) const { return connections_[number].held_back; }
    void SetHeldBack(uint32_t number, bool value) { connections_[number].held_back = value; }

    // Starts a round: no connection is ready.
    void StartRound() { ready_count_ = 0; }
    // At most once per round for each connection.
    void MarkReady(uint32_t number) { ready_[ready_count_++] = number; }
    // Picks, among the users with ready connections, the user whose last turn is the oldest, and
    // then that user's ready connection whose last turn is the oldest. Returns its number and
    // removes it from the ready connections. Empty: no connection is ready.
    [[nodiscard]] std::optional<uint32_t> TakeTurn();
    void NoteRequest(uint32_t number, int64_t now_ms) {
        connections_[number].last_request_ms = now_ms;
    }

  private:
    struct Connection {
        base::UniqueFd fd;
        uint32_t user = 0;  // index into users_
        uint64_t last_turn = 0;
        int64_t last_request_ms = 0;  // or the time of its admission
        bool held_back = false;
    };
    struct User {
        uid_t uid = 0;
        uint32_t connections = 0;  // 0: the entry is free
        uint64_t last_turn = 0;
        int64_t next_search_ms = 0;  // no search for a silent connection before this time
    };

    uint32_t FindUser(uid_t uid) const;
    bool HasRoomFor(uid_t uid, int64_t now_ms);
    bool CloseSilent(User* user, int64_t now_ms);
    uint32_t CountFrom(uid_t lowest) const;
    template <typename Choice>
    bool CloseOne(Choice&& may_close);

    std::array<Connection, kPlaces> connections_;
    std::array<User, kPlaces> users_;
    std::array<uint32_t, kPlaces> ready_{};
    uint32_t count_ = 0;
    uint32_t ready_count_ = 0;
    uint64_t turn_ = 0;  // number of the last turn
};

}  // namespace binder
