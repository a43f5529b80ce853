#pragma once
// Lazily created process-wide instance guarded by one mutex per type.
#include <atomic>
#include <mutex>

namespace Norvell {

template <typename T> class CSingleton {
public:
    static T* GetInstance() {
        T* current = instance.load(std::memory_order_acquire);
        if (current == nullptr) {
            std::lock_guard<std::recursive_mutex> lock(mutex);
            current = instance.load(std::memory_order_relaxed);
            if (current == nullptr) {
                current = new T();
                instance.store(current, std::memory_order_release);
            }
        }
        return current;
    }

    static void DestroyInstance() {
        if (instance.load(std::memory_order_acquire) == nullptr) return;
        std::lock_guard<std::recursive_mutex> lock(mutex);
        T* current = instance.exchange(nullptr, std::memory_order_acq_rel);
        delete current;
    }

    static std::recursive_mutex& Mutex() { return mutex; }

protected:
    CSingleton() = default;
    ~CSingleton() = default;

private:
    static inline std::atomic<T*> instance{nullptr};
    static inline std::recursive_mutex mutex;
};

// A static of this type destroys the instance when the program ends or the
// library is unloaded.
template <typename T> struct CSingletonRelease {
    CSingletonRelease() = default;
    CSingletonRelease(const CSingletonRelease&) = delete;
    CSingletonRelease& operator=(const CSingletonRelease&) = delete;
    ~CSingletonRelease() { CSingleton<T>::DestroyInstance(); }
};

} // namespace Norvell
