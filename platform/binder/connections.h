// The connections that a server holds: who may hold how many, and whose request is next.
//
// A user is one uid, or all uids of one range of subordinate ids, which belong to one account. The
// limits leave places that no single account can take, and places that only root can take. Turns go
// round the users, and within one user round its connections, so that a user with many connections
// is served no more often than one with a single connection.
//
// A connection whose last reply has not been taken is never closed to make room: the kernel would
// charge the reply to this process for as long as the peer leaves it there.
//
// Owns the descriptors. Does not wait for anything. For one thread.
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

    // Takes over a connection of a peer with this uid and returns its number, below kPlaces. Where
    // the limits are reached, another connection may be closed for it. Empty: refused, and closed.
    [[nodiscard]] std::optional<uint32_t> Admit(base::UniqueFd fd, uid_t uid, int64_t now_ms);
    void Close(uint32_t number);

    // Whether a connection has this number, which may come from an event that is out of date.
    bool holds(uint32_t number) const { return bool(connections_[number].fd); }
    int fd(uint32_t number) const { return connections_[number].fd.get(); }
    uint32_t count() const { return count_; }

    // A connection is held back while a request waits behind a reply that was not taken.
    bool held_back(uint32_t number) const { return connections_[number].held_back; }
    void set_held_back(uint32_t number, bool value) { connections_[number].held_back = value; }

    // Starts a round of turns in which no connection is ready yet.
    void StartRound() { ready_count_ = 0; }
    // Once a round for each connection.
    void MarkReady(uint32_t number) { ready_[ready_count_++] = number; }
    // The ready connection of the user, and of this user the connection, whose last turn is the
    // longest ago. Its turn begins: it is no longer ready. Empty: none is ready.
    [[nodiscard]] std::optional<uint32_t> TakeTurn();
    // Notes that a request was received.
    void NoteRequest(uint32_t number, int64_t now_ms) { connections_[number].asked_at_ms = now_ms; }

  private:
    struct Connection {
        base::UniqueFd fd;
        uint32_t user = 0;        // its number
        uint64_t turn = 0;        // its last one
        int64_t asked_at_ms = 0;  // or was admitted
        bool held_back = false;
    };
    struct User {
        uid_t uid = 0;
        uint32_t connections = 0;  // 0: the entry is free
        uint64_t turn = 0;
        int64_t search_again_at_ms = 0;  // for a connection of it to close
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
    uint64_t turn_ = 0;  // the last one that began
};

}  // namespace binder
