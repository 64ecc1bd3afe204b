// Local binders: who keeps what alive, hooks, and transactions within one process.
#include <binder/ibinder.h>
#include <binder/interface_utils.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

using binder::ScopedParcel;
using binder::StrongBinder;
using binder::WeakBinder;

namespace {

std::atomic<int> created, destroyed;

void* Create(void* argument) {
    ++created;
    return argument;
}
void Destroy(void*) {
    ++destroyed;
}

// Answers twice the request's number; code 9 fails after it has written something, and code 10
// with what is no status.
binder_status_t Double(AIBinder*, transaction_code_t code, const AParcel* request, AParcel* reply) {
    int32_t number = 0;
    if (code == 10) return 1;
    if (binder_status_t status = AParcel_readInt32(request, &number)) return status;
    if (binder_status_t status = AParcel_writeInt32(reply, number * 2)) return status;
    return code == 9 ? STATUS_UNKNOWN_TRANSACTION : STATUS_OK;
}

class BinderTest : public testing::Test {
  protected:
    BinderTest() {
        created = destroyed = 0;
        binder_ = StrongBinder(AIBinder_new(Class(), &data_));
    }

    static AIBinder_Class* Class() {
        static AIBinder_Class* const clazz =
            AIBinder_Class_define("test.IDouble", Create, Destroy, Double);
        return clazz;
    }
    int data_ = 0;
    StrongBinder binder_;
};

TEST_F(BinderTest, UserDataLivesAsLongAsStrongReferences) {
    EXPECT_EQ(AIBinder_getUserData(binder_.get()), &data_);
    EXPECT_FALSE(AIBinder_isRemote(binder_.get()));
    const WeakBinder weak(AIBinder_Weak_new(binder_.get()));
    AIBinder_incStrong(binder_.get());
    StrongBinder second(binder_.get());
    binder_ = StrongBinder();
    EXPECT_EQ(destroyed, 0);
    StrongBinder promoted(AIBinder_Weak_promote(weak.get()));
    EXPECT_EQ(promoted.get(), second.get());
    second = StrongBinder();
    EXPECT_EQ(destroyed, 0);
    promoted = StrongBinder();
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(AIBinder_Weak_promote(weak.get()), nullptr);
    EXPECT_EQ(created, 1);
}

TEST_F(BinderTest, PromotionRacesWithTheLastRelease) {
    for (int round = 0; round < 200; ++round) {
        StrongBinder last(AIBinder_new(Class(), nullptr));
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&ready, round, weak = WeakBinder(AIBinder_Weak_new(last.get()))] {
                ++ready;
                // Bounded: together the threads could keep the object alive for very long.
                for (int attempt = 0; attempt < 100; ++attempt) {
                    const StrongBinder alive(AIBinder_Weak_promote(weak.get()));
                    if (!alive) break;
                    EXPECT_EQ(destroyed, round);
                }
            });
        }
        while (ready < 3) std::this_thread::yield();
        last = StrongBinder();
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(destroyed, round + 1);
    }
}

TEST_F(BinderTest, TransactionsTakeTheRequestAndGiveAReplyOrAStatus) {
    const struct {
        transaction_code_t code;
        bool with_number;
        binder_flags_t flags;
        binder_status_t status;
    } cases[] = {{1, true, 0, STATUS_OK},
                 {1, false, 0, STATUS_NOT_ENOUGH_DATA},
                 {1, true, 1, STATUS_BAD_VALUE},
                 {9, true, 0, -74},
                 {10, true, 0, STATUS_UNKNOWN_ERROR}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        ScopedParcel request, reply;
        ASSERT_EQ(AIBinder_prepareTransaction(binder_.get(), request.slot()), STATUS_OK);
        if (c.with_number) {
            ASSERT_EQ(AParcel_writeInt32(request.get(), 21), STATUS_OK);
        }
        EXPECT_EQ(AIBinder_transact(binder_.get(), c.code, request.slot(), reply.slot(), c.flags),
                  c.status);
        EXPECT_FALSE(request);
        ASSERT_EQ(bool(reply), c.status == STATUS_OK);
        int32_t number = 0;
        if (reply) {
            EXPECT_EQ(AParcel_readInt32(reply.get(), &number), STATUS_OK);
        }
        EXPECT_EQ(number, reply ? 42 : 0);
    }
}

TEST_F(BinderTest, HooksAreTheClassesOwn) {
    EXPECT_EQ(AIBinder_dump(binder_.get(), 1, nullptr, 0), STATUS_OK);
    EXPECT_EQ(AIBinder_runShellCommand(binder_.get(), 0, 1, 2, nullptr, 0), STATUS_OK);
    static AIBinder_Class* const clazz =
        AIBinder_Class_define("test.IHooks", Create, Destroy, Double);
    AIBinder_Class_setOnDump(clazz, [](AIBinder*, int fd, const char** args, uint32_t count) {
        return fd * 100 + int(count) + args[0][0];
    });
    AIBinder_Class_setHandleShellCommand(
        clazz, [](AIBinder*, int in, int out, int err, const char** argv, uint32_t argc) {
            return in * 1000 + out * 100 + err * 10 + int(argc) + argv[0][0];
        });
    static const char* names[] = {"one", "two"};
    AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, names, 2);
    const StrongBinder hooked(AIBinder_new(clazz, nullptr));
    const char* arguments[] = {"\x01"};
    EXPECT_EQ(AIBinder_dump(hooked.get(), 3, arguments, 1), 302);
    EXPECT_EQ(AIBinder_runShellCommand(hooked.get(), 4, 5, 6, arguments, 1), 4562);
    EXPECT_STREQ(AIBinder_Class_getFunctionName(clazz, 2), "two");
    for (const transaction_code_t code : {0U, 3U, 0xffffffU}) {
        EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, code), nullptr);
    }
}

}  // namespace
