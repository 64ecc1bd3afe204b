// Binder classes, binder objects and transactions.
//
// A local binder runs its class's transaction function in this process; a remote one sends the
// same parcels to the process that serves it. Every function that returns an AIBinder* or an
// AIBinder_Weak* hands one reference to the caller; AIBinder_decStrong and AIBinder_Weak_delete
// release it and ignore null. Reference counts are atomic and a remote binder sends one
// transaction at a time, so a binder may be shared between threads; the setters of a class are
// called before its first object exists.
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

// Null when the descriptor or a hook is null. Classes live as long as the process. The descriptor
// is for the reader: names, not classes, are what a client looks up.
[[nodiscard]] AIBinder_Class* AIBinder_Class_define(const char* descriptor,
                                                    AIBinder_Class_onCreate on_create,
                                                    AIBinder_Class_onDestroy on_destroy,
                                                    AIBinder_Class_onTransact on_transact);
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump hook);
void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz, AIBinder_handleShellCommand hook);
// `names` is borrowed for the life of the process; names[i] is the method of code i + 1.
void AIBinder_Class_setTransactionCodeToFunctionNameMap(AIBinder_Class* clazz, const char** names,
                                                        size_t length);
// Null for a code without a name.
const char* AIBinder_Class_getFunctionName(const AIBinder_Class* clazz, transaction_code_t code);

// A new local binder object whose user data is what the class's create hook returns. Null for
// a null class.
[[nodiscard]] AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* argument);
// Changes nothing here: interfaces of an ordinary Linux system have one kind of stability.
void AIBinder_markVintfStability(AIBinder* binder);
void* AIBinder_getUserData(AIBinder* binder);  // null for a remote binder
bool AIBinder_isRemote(const AIBinder* binder);

void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

[[nodiscard]] AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
[[nodiscard]] AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weak);  // null: the object is gone
void AIBinder_Weak_delete(AIBinder_Weak* weak);

// On success *request is a new parcel that AIBinder_transact takes over.
[[nodiscard]] binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** request);
// Deletes *request and sets it to null, whatever happens. On STATUS_OK *reply is a new parcel,
// positioned at its start, that the caller owns; otherwise it is null. No flags are defined: any
// but 0 is STATUS_BAD_VALUE. A remote call waits for the answer as long as the other process lives.
// Once a connection has failed, all further calls on it are STATUS_DEAD_OBJECT.
[[nodiscard]] binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code,
                                                AParcel** request, AParcel** reply,
                                                binder_flags_t flags);

// Run the class's hooks on a local binder. STATUS_OK where the class has none,
// STATUS_UNKNOWN_TRANSACTION for a remote binder: descriptors do not travel.
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t num_args);
binder_status_t AIBinder_runShellCommand(AIBinder* binder, int in, int out, int err,
                                         const char** argv, uint32_t argc);
