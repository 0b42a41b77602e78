#include <errno.h>
#include <fcntl.h>
#include <orvane/Semaphore.h>
#include <orvane/Time.h>
#include <string.h>
#include <unistd.h>

#include "log/LogLine.h"

namespace orvane {

Semaphore::Semaphore() : className("Semaphore"), unnamed(), handle(nullptr) {}

Semaphore::~Semaphore() = default;

sem_t* Semaphore::current() { return name.empty() ? &unnamed : handle; }

bool Semaphore::open(int value, const std::string& semName) {
    if (semName.empty()) {
        if (::sem_init(&unnamed, 0, static_cast<unsigned int>(value)) != 0) {
            int err = errno;
            ORVANE_ERROR("sem init error: %s!", strerror(err));
            return false;
        }
        // From now on the object works on its unnamed semaphore.
        if (handle != nullptr) ::sem_close(handle);
        handle = nullptr;
        name.clear();
        return true;
    }
    std::string systemName = "/" + semName;
    sem_t* opened = nullptr;
    if (value < 0) {
        opened = ::sem_open(systemName.c_str(), 0);
        if (opened == SEM_FAILED) {
            int err = errno;
            ORVANE_ERROR("open(%s) error: %s!", systemName.c_str(), strerror(err));
            return false;
        }
    } else {
        // A semaphore left by an earlier run would keep its old count.
        if (::access(("/dev/shm/sem." + semName).c_str(), F_OK) == 0) {
            std::string previous = name;
            name = systemName;
            unlink();
            name = previous;
        }
        opened = ::sem_open(systemName.c_str(), O_CREAT, 0666, static_cast<unsigned int>(value));
        if (opened == SEM_FAILED) {
            int err = errno;
            ORVANE_ERROR("open with value(%d) error: %s!", value, strerror(err));
            return false;
        }
    }
    // Opening again releases the previous handle (the C library counts
    // handles per name, so this is right also when both are the same).
    if (handle != nullptr) ::sem_close(handle);
    handle = opened;
    name = systemName;
    return true;
}

bool Semaphore::close() {
    if (!name.empty()) {
        int rc = -1;
        int err = EINVAL;  // nothing open under this name
        if (handle != nullptr) {
            rc = ::sem_close(handle);
            err = errno;
        }
        if (rc != 0) {
            ORVANE_ERROR("sem close error: %s!", strerror(err));
            return false;
        }
        handle = nullptr;
        return true;
    }
    if (::sem_destroy(&unnamed) != 0) {
        int err = errno;
        ORVANE_ERROR("sem destroy error: %s!", strerror(err));
        return false;
    }
    return true;
}

bool Semaphore::unlink() {
    if (name.empty()) return true;
    if (::sem_unlink(name.c_str()) != 0) {
        int err = errno;
        ORVANE_ERROR("sem unlink(%s) error: %s!", name.c_str(), strerror(err));
        return false;
    }
    return true;
}

bool Semaphore::wait(int timeoutMs) {
    sem_t* sem = current();
    if (sem == nullptr) return false;
    if (timeoutMs < 0) return ::sem_wait(sem) == 0;
    Time start = Time::fromMono();
    do {
        if (::sem_trywait(sem) == 0) return true;
    } while (Time::usSinceMono(start) / 1000 < timeoutMs);
    return false;
}

bool Semaphore::post() {
    sem_t* sem = current();
    return sem != nullptr && ::sem_post(sem) == 0;
}

bool Semaphore::getValue(int* value) {
    sem_t* sem = current();
    if (sem == nullptr || value == nullptr) return false;
    return ::sem_getvalue(sem, value) != -1;
}

RWMutex::RWMutex() : className("RWMutex"), readers(0), writing(false) {}

void RWMutex::lockR() {
    std::unique_lock<std::mutex> lock(guard);
    // Readers already inside let a new reader in even while a writer waits.
    released.wait(lock, [this] { return !writing; });
    ++readers;
}

void RWMutex::unLockR() {
    std::lock_guard<std::mutex> lock(guard);
    if (readers == 0) return;
    if (--readers == 0) released.notify_all();
}

void RWMutex::lockW() {
    std::unique_lock<std::mutex> lock(guard);
    released.wait(lock, [this] { return !writing && readers == 0; });
    writing = true;
}

void RWMutex::unLockW() {
    std::lock_guard<std::mutex> lock(guard);
    if (!writing) return;
    writing = false;
    released.notify_all();
}

}  // namespace orvane
