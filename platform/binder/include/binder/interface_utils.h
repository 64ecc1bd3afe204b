// Support classes for interfaces, header-only: owners of the C handles, the base class of
// reference-counted interface objects, and the bases of local (Bn) and remote (Bp) implementations.
//
// The user data of a local binder owns the interface object through a shared reference; the object
// has only a weak reference to its binder.
#pragma once

#include <binder/ibinder.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

namespace binder {

// Owns one handle of the C interface. Can be moved, not copied.
template <typename T, void (*Release)(T*)>
class Scoped {
  public:
    Scoped() = default;
    explicit Scoped(T* owned) : handle_(owned) {}
    Scoped(Scoped&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    // Exchanges the handles: `other` releases the old one.
    Scoped& operator=(Scoped&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Scoped() { Release(handle_); }

    T* get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }
    // Address of the handle, for a function that stores a handle there or takes it over. The object
    // must be empty before a function stores a handle.
    T** slot() { return &handle_; }

  private:
    T* handle_ = nullptr;
};

using StrongBinder = Scoped<AIBinder, AIBinder_decStrong>;
using WeakBinder = Scoped<AIBinder_Weak, AIBinder_Weak_delete>;
using ScopedParcel = Scoped<AParcel, AParcel_delete>;

class [[nodiscard]] ScopedStatus : public Scoped<AStatus, AStatus_delete> {
  public:
    using Scoped::Scoped;
    static ScopedStatus ok() { return ScopedStatus(AStatus_newOk()); }
    static ScopedStatus fromServiceSpecificError(int32_t code) {
        return ScopedStatus(AStatus_fromServiceSpecificError(code));
    }
    static ScopedStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedStatus fromStatus(binder_status_t status) {
        return ScopedStatus(AStatus_fromStatus(status));
    }
    bool isOk() const { return AStatus_isOk(get()); }
};

// Base of interface objects. Aborts the process if an object is destroyed without ever having had a
// shared owner, if a second, independent owner destroys it, or if ref() is called after the last
// shared owner released it.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;
    virtual ~SharedRefBase() {
        bool never_owned = false;
        std::call_once(first_owner_, [&] { never_owned = true; });
        if (never_owned) die("destroyed without ever having had a shared owner");
        if (self_.lock()) die("destroyed by a second, independent owner");
    }

    // A shared reference to this object. The first call creates the owner that all others share.
    std::shared_ptr<SharedRefBase> ref() {
        std::shared_ptr<SharedRefBase> owner;
        std::call_once(first_owner_, [&] {
            owner.reset(this);
            self_ = owner;
        });
        if (!owner) owner = self_.lock();
        if (!owner) die("referenced after its last shared owner was gone");
        return owner;
    }

    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        T* object = new T(std::forward<Args>(args)...);
        return std::static_pointer_cast<T>(object->ref());
    }

  private:
    [[noreturn]] static void die(const char* fault) {
        std::fprintf(stderr, "interface object %s\n", fault);
        std::abort();
    }

    std::once_flag first_owner_;
    std::weak_ptr<SharedRefBase> self_;
};

class ICInterface : public SharedRefBase {
  public:
    virtual StrongBinder asBinder() = 0;
    virtual bool isRemote() { return false; }
    virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*num_args*/) {
        return STATUS_OK;
    }
    virtual binder_status_t handleShellCommand(int /*in*/, int /*out*/, int /*err*/,
                                               const char** /*argv*/, uint32_t /*argc*/) {
        return STATUS_OK;
    }
};

// The user data of a local binder object: one shared reference to the interface object.
struct ICInterfaceData {
    std::shared_ptr<ICInterface> interface;

    // The interface object of a local binder; null if `binder` is null or has none.
    static std::shared_ptr<ICInterface> getInterface(AIBinder* binder) {
        void* data = binder != nullptr ? AIBinder_getUserData(binder) : nullptr;
        return data != nullptr ? static_cast<ICInterfaceData*>(data)->interface : nullptr;
    }
    // `argument` is an ICInterface*.
    static void* onCreate(void* argument) {
        auto owner = static_cast<ICInterface*>(argument)->ref();
        return new ICInterfaceData{std::static_pointer_cast<ICInterface>(std::move(owner))};
    }
    static void onDestroy(void* user_data) { delete static_cast<ICInterfaceData*>(user_data); }
    static binder_status_t onDump(AIBinder* binder, int fd, const char** args, uint32_t num_args) {
        const auto object = getInterface(binder);
        return object ? object->dump(fd, args, num_args) : STATUS_DEAD_OBJECT;
    }
    static binder_status_t handleShellCommand(AIBinder* binder, int in, int out, int err,
                                              const char** argv, uint32_t argc) {
        const auto object = getInterface(binder);
        return object ? object->handleShellCommand(in, out, err, argv, argc) : STATUS_DEAD_OBJECT;
    }
};

// Base of a local implementation. Creates its binder on demand and keeps a weak reference to it.
template <typename Interface>
class BnCInterface : public Interface {
  public:
    StrongBinder asBinder() override {
        const std::lock_guard lock(mutex_);
        if (weak_) {
            StrongBinder alive(AIBinder_Weak_promote(weak_.get()));
            if (alive) return alive;
        }
        StrongBinder created = createBinder();
        weak_ = WeakBinder(created ? AIBinder_Weak_new(created.get()) : nullptr);
        return created;
    }

  protected:
    virtual StrongBinder createBinder() = 0;

  private:
    std::mutex mutex_;
    WeakBinder weak_;
};

// Base of a proxy. Holds a strong reference to the remote binder.
template <typename Interface>
class BpCInterface : public Interface {
  public:
    explicit BpCInterface(StrongBinder binder) : binder_(std::move(binder)) {}
    StrongBinder asBinder() override {
        AIBinder_incStrong(binder_.get());
        return StrongBinder(binder_.get());
    }
    bool isRemote() override { return AIBinder_isRemote(binder_.get()); }

  protected:
    AIBinder* binder() const { return binder_.get(); }

  private:
    StrongBinder binder_;
};

}  // namespace binder
