// Binder objects: references, function names and transactions in one process, and one proxy's
// connection.
#include <base/unique_fd.h>
#include <binder/interface_utils.h>
#include <gtest/gtest.h>
#include <platform/binder/message.h>
#include <platform/binder/object.h>
#include <sys/socket.h>

#include <atomic>
#include <memory>
#include <thread>

using binder::ScopedParcel;
using binder::StrongBinder;
using binder::WeakBinder;

namespace {

std::atomic<int> created, destroyed;

// Replies with twice the number of the request. Code 9 fails after writing, code 10 returns a
// positive value.
binder_status_t Double(AIBinder*, transaction_code_t code, const AParcel* request, AParcel* reply) {
    int32_t number = 0;
    if (binder_status_t status = AParcel_readInt32(request, &number)) return status;
    if (binder_status_t status = AParcel_writeInt32(reply, number * 2)) return status;
    return code == 9 ? STATUS_UNKNOWN_TRANSACTION : code == 10 ? 1 : STATUS_OK;
}

AIBinder_Class* NewClass() {
    const auto create = [](void* argument) { return ++created, argument; };
    const auto destroy = [](void*) { ++destroyed; };
    return AIBinder_Class_define("test.IDouble", create, destroy, Double);
}

AIBinder* NewBinder(void* data) {
    static AIBinder_Class* const clazz = NewClass();
    return AIBinder_new(clazz, data);
}

// Sets *number to the number in the reply if there is a reply.
binder_status_t Transact(AIBinder* binder, transaction_code_t code, int32_t* number,
                         binder_flags_t flags = 0) {
    ScopedParcel request(AParcel_create()), reply;
    EXPECT_EQ(AParcel_writeInt32(request.get(), *number), STATUS_OK);
    const auto status = AIBinder_transact(binder, code, request.slot(), reply.slot(), flags);
    EXPECT_FALSE(request);
    EXPECT_EQ(bool{reply}, status == STATUS_OK);
    return status == STATUS_OK ? AParcel_readInt32(reply.get(), number) : status;
}

TEST(BinderTest, UserDataLivesAsLongAsStrongReferences) {
    created = destroyed = 0;
    int data = 0;
    StrongBinder first(NewBinder(&data));
    EXPECT_EQ(AIBinder_getUserData(first.get()), &data);
    AIBinder_incStrong(first.get());
    StrongBinder second(first.get());
    const WeakBinder weak(AIBinder_Weak_new(first.get()));
    first = StrongBinder();
    first = StrongBinder(AIBinder_Weak_promote(weak.get()));
    second = StrongBinder();
    EXPECT_EQ(destroyed, 0);
    first = StrongBinder();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(AIBinder_Weak_promote(weak.get()), nullptr);
    EXPECT_EQ(created, 1);
}

TEST(BinderTest, PromotionRacesWithTheLastRelease) {
    destroyed = 0;
    for (int round = 0; round < 200; ++round) {
        StrongBinder last(NewBinder(nullptr));
        std::atomic<bool> ready{false};
        std::thread promoter([&ready, round, weak = WeakBinder(AIBinder_Weak_new(last.get()))] {
            ready = true;
            for (;;) {
                const StrongBinder alive(AIBinder_Weak_promote(weak.get()));
                if (!alive) break;
                EXPECT_EQ(destroyed, round);
            }
        });
        while (!ready) std::this_thread::yield();
        last = StrongBinder();
        promoter.join();
        EXPECT_EQ(destroyed, round + 1);
    }
}

TEST(BinderTest, LocalTransactionsReturnAReplyOrAStatus) {
    const StrongBinder local(NewBinder(nullptr));
    const struct {
        AIBinder* binder;
        transaction_code_t code;
        binder_flags_t flags;
        binder_status_t status;
    } cases[] = {{local.get(), 1, 0, STATUS_OK},
                 {local.get(), 1, 1, STATUS_BAD_VALUE},
                 {local.get(), 9, 0, -74},
                 {local.get(), 10, 0, STATUS_UNKNOWN_ERROR},
                 {nullptr, 1, 0, STATUS_UNEXPECTED_NULL}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        int32_t number = 21;
        EXPECT_EQ(Transact(c.binder, c.code, &number, c.flags), c.status);
        EXPECT_EQ(number, c.status == STATUS_OK ? 42 : 21);
    }
    const ScopedParcel request(AParcel_create()), reply(AParcel_create());
    ASSERT_EQ(AParcel_writeInt32(request.get(), 21), STATUS_OK);
    EXPECT_EQ(binder::RunTransaction(local.get(), 9, request.get(), reply.get()), -74);
    EXPECT_EQ(AParcel_getDataSize(reply.get()), 0);  // The server sends it.
}

TEST(BinderTest, AClassWithoutHooksAcceptsThemAndItsCodesHaveNames) {
    static AIBinder_Class* const clazz = NewClass();  // classes are never destroyed
    const StrongBinder binder(AIBinder_new(clazz, nullptr));
    EXPECT_EQ(AIBinder_dump(binder.get(), 1, nullptr, 0), STATUS_OK);
    EXPECT_EQ(AIBinder_runShellCommand(binder.get(), 0, 1, 2, nullptr, 0), STATUS_OK);
    static const char* names[] = {"one", "two"};
    AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, names, 2);
    EXPECT_STREQ(AIBinder_Class_getFunctionName(clazz, 2), "two");
    for (const transaction_code_t code : {0U, 3U, 0xffffffU}) {
        EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, code), nullptr);
    }
}

TEST(BinderTest, ANullBinderIsRejectedOrIgnored) {
    AParcel* request = nullptr;
    EXPECT_EQ(AIBinder_prepareTransaction(nullptr, &request), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_dump(nullptr, 1, nullptr, 0), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_runShellCommand(nullptr, 0, 1, 2, nullptr, 0), STATUS_UNEXPECTED_NULL);
    EXPECT_EQ(AIBinder_getUserData(nullptr), nullptr);
    EXPECT_FALSE(AIBinder_isRemote(nullptr));
    EXPECT_EQ(AIBinder_Weak_new(nullptr), nullptr);
    AIBinder_incStrong(nullptr);
}

// The peer replies with the request's data. The thread sanitizer reports unlocked accesses.
TEST(ProxyTest, TransactionsOfTwoThreadsTakeTurns) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    std::thread peer([fd = base::UniqueFd(ends[1])] {
        for (uint32_t words[4]; recv(fd.get(), words, 16, 0) == 16;) {
            words[0] = binder::kReplyMagic;
            words[1] = STATUS_OK;
            EXPECT_EQ(send(fd.get(), words, 16, 0), 16);
        }
    });
    StrongBinder proxy(binder::NewRemoteBinder(base::UniqueFd(ends[0])));
    const auto transact = [&](int32_t first) {
        for (int32_t i = first; i < first + 500; ++i) {
            int32_t number = i;
            EXPECT_EQ(Transact(proxy.get(), 1, &number), STATUS_OK);
            EXPECT_EQ(number, i);
        }
    };
    std::thread second(transact, 1000);
    transact(0);
    second.join();
    proxy = StrongBinder();
    peer.join();
}

}  // namespace
