#include "object.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "parcel.h"
#include "remote.h"

struct AIBinder_Class {
    AIBinder_Class_onCreate on_create;
    AIBinder_Class_onDestroy on_destroy;
    AIBinder_Class_onTransact on_transact;
    AIBinder_onDump on_dump = nullptr;
    AIBinder_handleShellCommand on_shell_command = nullptr;
    const char** names = nullptr;
    size_t name_count = 0;
};

struct AIBinder {
    const AIBinder_Class* clazz = nullptr;  // null: remote
    void* user_data = nullptr;
    std::unique_ptr<binder::RemoteConnection> connection;  // null: local
    // Releasing the last strong reference destroys the user data or the connection; releasing the
    // last weak one frees the object. All strong references together hold one weak reference.
    std::atomic<uint32_t> strong{1};
    std::atomic<uint32_t> weak{1};
};

struct AIBinder_Weak {
    AIBinder* binder;
};

namespace binder {
namespace {

void DecWeak(AIBinder* object) {
    if (object->weak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
}

}  // namespace

AIBinder* NewRemoteBinder(base::UniqueFd connection) {
    auto* const object = new AIBinder;
    object->connection = std::make_unique<RemoteConnection>(std::move(connection));
    return object;
}

binder_status_t RunTransaction(AIBinder* binder, transaction_code_t code, const AParcel* request,
                               AParcel* reply) {
    request->position = 0;
    reply->Clear();
    const binder_status_t status = binder->clazz->on_transact(binder, code, request, reply);
    if (status != STATUS_OK) reply->Clear();
    reply->position = 0;
    return status <= STATUS_OK ? status : STATUS_UNKNOWN_ERROR;
}

}  // namespace binder

AIBinder_Class* AIBinder_Class_define(const char* descriptor, AIBinder_Class_onCreate on_create,
                                      AIBinder_Class_onDestroy on_destroy,
                                      AIBinder_Class_onTransact on_transact) {
    if (descriptor == nullptr || on_create == nullptr || on_destroy == nullptr ||
        on_transact == nullptr) {
        return nullptr;
    }
    return new AIBinder_Class{on_create, on_destroy, on_transact};
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump hook) {
    clazz->on_dump = hook;
}

void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz, AIBinder_handleShellCommand hook) {
    clazz->on_shell_command = hook;
}

void AIBinder_Class_setTransactionCodeToFunctionNameMap(AIBinder_Class* clazz, const char** names,
                                                        size_t length) {
    clazz->names = names;
    clazz->name_count = length;
}

const char* AIBinder_Class_getFunctionName(const AIBinder_Class* clazz, transaction_code_t code) {
    return code >= 1 && code <= clazz->name_count ? clazz->names[code - 1] : nullptr;
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* argument) {
    if (clazz == nullptr) return nullptr;
    auto* const object = new AIBinder;
    object->clazz = clazz;
    object->user_data = clazz->on_create(argument);
    return object;
}

void AIBinder_markVintfStability(AIBinder*) {}

void* AIBinder_getUserData(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->user_data;
}

bool AIBinder_isRemote(const AIBinder* binder) {
    return binder != nullptr && binder->connection != nullptr;
}

void AIBinder_incStrong(AIBinder* binder) {
    if (binder != nullptr) binder->strong.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder == nullptr) return;
    if (binder->strong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    if (binder->clazz != nullptr) binder->clazz->on_destroy(binder->user_data);
    binder->connection.reset();
    binder::DecWeak(binder);
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    binder->weak.fetch_add(1, std::memory_order_relaxed);
    return new AIBinder_Weak{binder};
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak) {
    if (weak == nullptr) return nullptr;
    std::atomic<uint32_t>& strong = weak->binder->strong;
    uint32_t count = strong.load(std::memory_order_relaxed);
    // A count of 0 is final: the user data is destroyed, or about to be.
    while (count != 0) {
        if (strong.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
            return weak->binder;
        }
    }
    return nullptr;
}

void AIBinder_Weak_delete(AIBinder_Weak* weak) {
    if (weak == nullptr) return;
    binder::DecWeak(weak->binder);
    delete weak;
}

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** request) {
    if (binder == nullptr || request == nullptr) return STATUS_UNEXPECTED_NULL;
    *request = AParcel_create();
    return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** request,
                                  AParcel** reply, binder_flags_t flags) {
    if (request == nullptr || reply == nullptr) return STATUS_UNEXPECTED_NULL;
    const std::unique_ptr<AParcel> sent(*request);
    *request = nullptr;
    *reply = nullptr;
    if (binder == nullptr || sent == nullptr) return STATUS_UNEXPECTED_NULL;
    if (flags != 0) return STATUS_BAD_VALUE;
    auto received = std::make_unique<AParcel>();
    const binder_status_t status =
        binder->connection != nullptr
            ? binder->connection->Transact(code, *sent, received.get())
            : binder::RunTransaction(binder, code, sent.get(), received.get());
    if (status == STATUS_OK) *reply = received.release();
    return status;
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t num_args) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->clazz == nullptr) return STATUS_UNKNOWN_TRANSACTION;
    const AIBinder_onDump hook = binder->clazz->on_dump;
    return hook == nullptr ? STATUS_OK : hook(binder, fd, args, num_args);
}

binder_status_t AIBinder_runShellCommand(AIBinder* binder, int in, int out, int err,
                                         const char** argv, uint32_t argc) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->clazz == nullptr) return STATUS_UNKNOWN_TRANSACTION;
    const AIBinder_handleShellCommand hook = binder->clazz->on_shell_command;
    return hook == nullptr ? STATUS_OK : hook(binder, in, out, err, argv, argc);
}
