#pragma once

#include <orvane/Export.h>
#include <semaphore.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace orvane {

// A POSIX semaphore: unnamed (inside the object, for the threads of one
// process) when opened with an empty name, else named and shared by every
// process that opens the same name (a file "/dev/shm/sem.<name>").
//
// Failures are logged once and reported as false. open, close and unlink
// belong to one owner; wait, post and getValue may be called by any thread.
//
// Behaviour worth knowing:
// - open with a value of 0 or more always starts a fresh semaphore: one left
//   by an earlier run under the same name is unlinked first, so its count
//   does not carry over. A negative value opens an existing one.
// - wait with a timeout polls sem_trywait without sleeping: it keeps one CPU
//   busy for up to the timeout.
// - The destructor neither closes nor destroys the semaphore: call close()
//   (and unlink() for a named one that should disappear).
class ORVANE_API Semaphore {
  public:
    Semaphore();
    virtual ~Semaphore();
    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    // Opens the semaphore (see the class comment for a value below 0 and for names); false (logged)
    // on failure.
    virtual bool open(int value, const std::string& name);
    // Closes a named semaphore or destroys an unnamed one; false (logged) on failure.
    virtual bool close();
    // Removes the name from the system; true for an unnamed semaphore.
    virtual bool unlink();
    // Negative timeoutMs: blocks; else polls until the timeout (0: one attempt).
    virtual bool wait(int timeoutMs);
    // Adds one to the count, waking one waiter; false when not open or sem_post fails.
    virtual bool post();
    // The current count into *value; false for a null pointer, when not open or when the query
    // fails.
    virtual bool getValue(int* value);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The semaphore in use: the named handle when there is a name.
    sem_t* current();

    sem_t unnamed;
    sem_t* handle;
    std::string name;
};

// A reader/writer lock that prefers readers: any number of readers hold it
// together and a writer waits until no reader does. The lock is not bound to
// a thread: the last reader out releases it for all, on whatever thread that
// is, and a writer may unlock on another thread than the one that locked.
// Unlocks without a matching lock are ignored. Failures of the underlying
// std::mutex propagate as std::system_error.
class ORVANE_API RWMutex {
  public:
    RWMutex();
    RWMutex(const RWMutex&) = delete;
    RWMutex& operator=(const RWMutex&) = delete;

    // Takes the lock for reading; waits while a writer holds it.
    void lockR();
    // Leaves as a reader; the last reader out releases the lock.
    void unLockR();
    // Takes the lock for writing; waits until no reader or writer holds it.
    void lockW();
    // Releases the write lock.
    void unLockW();

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    std::mutex guard;
    std::condition_variable released;
    int readers;
    bool writing;
};

}  // namespace orvane
