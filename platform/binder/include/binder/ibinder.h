// Binder classes, binder objects and transactions.
//
// A local binder runs its class's transaction function in this process; a remote one sends the
// same parcels to the process that serves it. A function that returns an AIBinder* or an
// AIBinder_Weak* gives one reference to the caller; AIBinder_decStrong and AIBinder_Weak_delete
// release it and ignore null. Threads may share a binder: reference counts are atomic, and a remote
// binder serialises its transactions. Call the setters of a class before AIBinder_new.
#pragma once

#include <binder/parcel.h>
#include <binder/status.h>

#include <cstddef>
#include <cstdint>

struct AIBinder;
struct AIBinder_Class;
struct AIBinder_Weak;

using transaction_code_t = uint32_t;
using binder_flags_t = uint32_t;

using AIBinder_Class_onCreate = void* (*)(void* argument);
using AIBinder_Class_onDestroy = void (*)(void* user_data);
using AIBinder_Class_onTransact = binder_status_t (*)(AIBinder* binder, transaction_code_t code,
                                                      const AParcel* request, AParcel* reply);
using AIBinder_onDump = binder_status_t (*)(AIBinder* binder, int fd, const char** args,
                                            uint32_t num_args);
using AIBinder_handleShellCommand = binder_status_t (*)(AIBinder* binder, int in, int out, int err,
                                                        const char** argv, uint32_t argc);

// A new class, which is never destroyed. Null if an argument is null. The descriptor is not kept:
// clients look services up by instance name.
[[nodiscard]] AIBinder_Class* AIBinder_Class_define(const char* descriptor,
                                                    AIBinder_Class_onCreate on_create,
                                                    AIBinder_Class_onDestroy on_destroy,
                                                    AIBinder_Class_onTransact on_transact);
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump hook);
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz, AIBinder_handleShellCommand hook);
// `names` is borrowed and must never be destroyed; names[i] is the method of code i + 1.
void AIBinder_Class_setTransactionCodeToFunctionNameMap(AIBinder_Class* clazz, const char** names,
                                                        size_t length);
// Name of the method with this code; null if it has none.
const char* AIBinder_Class_getFunctionName(const AIBinder_Class* clazz, transaction_code_t code);

// A new local binder object. Its user data is the result of the create hook called with `argument`;
// releasing the last strong reference calls the destroy hook. Null if `clazz` is null.
[[nodiscard]] AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* argument);
// No effect: interfaces of an ordinary Linux system have one kind of stability.
void AIBinder_markVintfStability(AIBinder* binder);
void* AIBinder_getUserData(AIBinder* binder);    // null for a remote or null binder
bool AIBinder_isRemote(const AIBinder* binder);  // false for a null binder

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

// Null if `binder` is null.
[[nodiscard]] AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
// A strong reference; null if the last strong reference was released or `weak` is null.
[[nodiscard]] AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak);
void AIBinder_Weak_delete(AIBinder_Weak* weak);

// On STATUS_OK *request is a new parcel, owned by the caller until AIBinder_transact takes it over.
// STATUS_UNEXPECTED_NULL for a null argument.
[[nodiscard]] binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** request);
// Sends *request and returns the status of the transaction. Deletes *request and sets it to null
// unless `request` or `reply` is null. On STATUS_OK *reply is a new parcel, positioned at its
// start, that the caller owns; otherwise it is null. A remote transaction waits for the reply
// without a time limit.
// STATUS_UNEXPECTED_NULL: an argument or *request is null. STATUS_BAD_VALUE: `flags` is not 0; none
// are defined. STATUS_DEAD_OBJECT: the other process closed the connection, or an earlier
// transaction on it failed. STATUS_FAILED_TRANSACTION: the message could not be sent, or its reply
// is malformed.
[[nodiscard]] binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code,
                                                AParcel** request, AParcel** reply,
                                                binder_flags_t flags);

// Call the class's hook on a local binder and return its result; STATUS_OK if the class has none.
// STATUS_UNEXPECTED_NULL for a null binder. STATUS_UNKNOWN_TRANSACTION for a remote binder, because
// messages cannot carry descriptors.
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t num_args);
binder_status_t AIBinder_runShellCommand(AIBinder* binder, int in, int out, int err,
                                         const char** argv, uint32_t argc);
