// One lazily made instance of T per process, for classes that derive from CTAKSingleton<T>.
//
// Life cycle: no instance until the first GetInstance(), which makes it (once, even when several threads
// ask at the same time); it lives until the process ends.
//
// m_tSingletonLock is a class-wide lock for T's own use (T decides what it guards). GetInstance() does
// not take it, so a holder of that lock may still ask for the instance. Its place in the lock order, and
// what CReset assumes of the library when it holds it, are in TAKLockOrder.h.
#pragma once

#include <mutex>

template <class T>
class CTAKSingleton {
public:
    static std::mutex m_tSingletonLock;

    static T* GetInstance() {
        // Made on first use; the language makes concurrent first calls wait for one construction.
        static T* s_pInstance = new T();
        return s_pInstance;
    }

protected:
    CTAKSingleton() = default;
    ~CTAKSingleton() = default;
};

template <class T>
std::mutex CTAKSingleton<T>::m_tSingletonLock;
