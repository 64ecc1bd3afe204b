#include "connections.h"

#include <poll.h>

#include <algorithm>
#include <utility>

#include "message.h"

namespace binder {
namespace {

constexpr uint32_t kPlacesOfUser = 64;
constexpr int64_t kSilentMs = 10'000;
constexpr int64_t kSearchIntervalMs = 1'000;

// Linux distributions assign subordinate ids from kFirstSubordinate up, in ranges of
// kSubordinateRange ids, usually one range for each account: subuid(5).
constexpr uid_t kFirstSubordinate = 100'000;
constexpr uid_t kSubordinateRange = 65'536;

// `places` is the limit for all users with uid `from` or above together. An account can use its own
// uid, for at most 64 places, and its subordinate uids, for at most 128 places in total.
constexpr struct {
    uid_t from;
    uint32_t places;
} kLimits[] = {{kFirstSubordinate, 128}, {1, 240}, {0, Connections::kPlaces}};

// A range of subordinate ids is represented by its lowest uid.
uid_t UserOf(uid_t uid) {
    return uid < kFirstSubordinate ? uid : uid - (uid - kFirstSubordinate) % kSubordinateRange;
}

bool HasRequest(int fd) {
    pollfd waiting{fd, POLLIN, 0};
    return poll(&waiting, 1, 0) != 0;
}

}  // namespace

std::optional<uint32_t> Connections::Admit(base::UniqueFd fd, uid_t uid, int64_t now_ms) {
    uid = UserOf(uid);
    if (!HasRoomFor(uid, now_ms)) return std::nullopt;
    const uint32_t user_number = FindUser(uid);
    User& user = users_[user_number];
    // A new user, like a new connection, is served after all existing ones.
    if (user.connections++ == 0) user = {uid, 1, turn_};
    const auto place =
        std::ranges::find_if(connections_, [](const Connection& c) { return !c.fd; });
    *place = {std::move(fd), user_number, turn_, now_ms};
    ++count_;
    return static_cast<uint32_t>(place - connections_.begin());
}

void Connections::Close(uint32_t number) {
    --users_[connections_[number].user].connections;
    connections_[number] = {};
    --count_;
}

// Index of this user's entry, or of a free entry if the user has no connection. If no entry is free
// because kPlaces users hold one connection each, returns 0, the index of another user's entry.
uint32_t Connections::FindUser(uid_t uid) const {
    uint32_t free = 0;
    for (uint32_t number = 0; number < kPlaces; ++number) {
        if (users_[number].connections == 0) {
            free = number;
        } else if (users_[number].uid == uid) {
            return number;
        }
    }
    return free;
}

uint32_t Connections::CountFrom(uid_t lowest) const {
    uint32_t count = 0;
    for (const User& user : users_) count += user.uid >= lowest ? user.connections : 0;
    return count;
}

// Closes one connection for each limit that one more connection of this user would exceed. False:
// a limit is reached and no connection may be closed for it.
bool Connections::HasRoomFor(uid_t uid, int64_t now_ms) {
    const auto user_of = [&](const Connection& c) -> const User& { return users_[c.user]; };
    User& user = users_[FindUser(uid)];
    const auto own_count = [&] { return user.uid == uid ? user.connections : 0; };
    if (own_count() >= kPlacesOfUser && !CloseSilent(&user, now_ms)) return false;
    for (const auto& limit : kLimits) {
        if (uid < limit.from || CountFrom(limit.from) < limit.places) continue;
        if (!CloseOne([&, own = own_count()](const Connection& c) {
                return user_of(c).uid >= limit.from && user_of(c).connections > own;
            })) {
            return false;
        }
    }
    return true;
}

// Closes a connection of `user` that has sent no request for kSilentMs. After a search without
// result the next one waits for kSearchIntervalMs, so that refusing a flood of connections is
// cheap.
bool Connections::CloseSilent(User* user, int64_t now_ms) {
    if (now_ms < user->next_search_ms) return false;
    const bool closed = CloseOne([&](const Connection& c) {
        return &users_[c.user] == user && c.last_request_ms <= now_ms - kSilentMs &&
               !HasRequest(c.fd.get());
    });
    if (!closed) user->next_search_ms = now_ms + kSearchIntervalMs;
    return closed;
}

// Closes one of the connections that `may_close` admits and whose peer received the last reply: of
// the user with the most connections, the one whose last turn is the oldest. False: there is none.
template <typename Choice>
bool Connections::CloseOne(Choice&& may_close) {
    const Connection* closed = nullptr;
    for (const Connection& c : connections_) {
        if (!c.fd || !may_close(c)) continue;
        const auto rank = [&](const Connection& it) {
            return std::pair(kPlaces - users_[it.user].connections, it.last_turn);
        };
        if (closed != nullptr && rank(*closed) <= rank(c)) continue;
        if (ReplyWasTaken(c.fd.get())) closed = &c;
    }
    if (closed == nullptr) return false;
    Close(static_cast<uint32_t>(closed - connections_.data()));
    return true;
}

std::optional<uint32_t> Connections::TakeTurn() {
    const auto rank = [&](uint32_t number) {
        const Connection& c = connections_[number];
        return std::pair(users_[c.user].last_turn, c.last_turn);
    };
    const auto end = ready_.begin() + ready_count_;
    const auto next = std::min_element(ready_.begin(), end,
                                       [&](uint32_t a, uint32_t b) { return rank(a) < rank(b); });
    if (next == end) return std::nullopt;
    const uint32_t number = std::exchange(*next, ready_[--ready_count_]);
    Connection& connection = connections_[number];
    connection.last_turn = users_[connection.user].last_turn = ++turn_;
    return number;
}

}  // namespace binder
