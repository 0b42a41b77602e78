#include <orvane/StrUtil.h>
#include <orvane/Tracer.h>
#include <syslog.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/BriefSpin.h"
#include "log/LogLine.h"

namespace orvane {

template class Singleton<Tracer>;

namespace {

constexpr size_t kLineBytes = 4096;

// Queue storage always kept between delivery passes; more is kept only while
// the lines of a pass fill at least a quarter of it.
constexpr size_t kKeptQueueBytes = 64 * 1024;

// The level a sink receives for a finished line, from its tag letter; -1 drops
// the line. A C-tagged line loses its tag here.
int classify(std::string& line) {
    if (line.size() < 2) return -1;
    switch (line[1]) {
        case 'D':
            return 0;
        case 'I':
            return 1;
        case 'W':
            return 2;
        case 'E':
            return 3;
        case 'F':
            return 4;
        case 'C':
            line.erase(0, 3);
            return 1;
        case 'L': {
            // May throw (std::stoi); that ends the sink thread and the
            // destructor reports it.
            std::string tag = StrUtil::findString(line, "<", ">");
            int userLevel = std::stoi(tag.substr(2));
            return userLevel > 4 ? userLevel : -1;
        }
        default:
            return -1;
    }
}

// printf into a fixed buffer for the conversions log lines use: literal text,
// %s, %c, %d, %i, %u, %x, %X (each with an optional l, ll or z) and %%.
// Same result and bytes as vsnprintf(buffer, capacity, ...): at most
// capacity - 1 characters and a NUL, returning the full length. glibc's
// vsnprintf spends most of a log line's cost on its general machinery; this
// covers the common case, and any other format (flags, widths, precisions,
// floats, a null %s) is handed back to vsnprintf.
class LineWriter {
  public:
    LineWriter(char* buffer, size_t capacity) : out(buffer), room(capacity - 1) {}

    // False when the format needs the general formatter.
    bool format(const char* format, va_list args) {
        const char* p = format;
        for (;;) {
            const char* percent = strchrnul(p, '%');
            put(p, static_cast<size_t>(percent - p));
            if (*percent == '\0') break;
            p = percent + 1;
            int longs = 0;
            bool sizeT = false;
            if (*p == 'l') {
                ++longs;
                if (*++p == 'l') {
                    ++longs;
                    ++p;
                }
            } else if (*p == 'z') {
                sizeT = true;
                ++p;
            }
            bool plain = longs == 0 && !sizeT;
            switch (*p) {
                case '%':
                    if (!plain) return false;
                    put("%", 1);
                    break;
                case 's': {
                    if (!plain) return false;
                    const char* text = va_arg(args, const char*);
                    if (text == nullptr) return false;
                    put(text, strlen(text));
                    break;
                }
                case 'c': {
                    if (!plain) return false;
                    char c = static_cast<char>(va_arg(args, int));
                    put(&c, 1);
                    break;
                }
                case 'd':
                case 'i': {
                    long long value = longs == 2   ? va_arg(args, long long)
                                      : longs == 1 ? va_arg(args, long)
                                      : sizeT      ? va_arg(args, ssize_t)
                                                   : va_arg(args, int);
                    unsigned long long magnitude =
                        value < 0 ? 0ull - static_cast<unsigned long long>(value)
                                  : static_cast<unsigned long long>(value);
                    putNumber(magnitude, 10, value < 0, false);
                    break;
                }
                case 'u':
                case 'x':
                case 'X': {
                    unsigned long long value = longs == 2   ? va_arg(args, unsigned long long)
                                               : longs == 1 ? va_arg(args, unsigned long)
                                               : sizeT      ? va_arg(args, size_t)
                                                            : va_arg(args, unsigned int);
                    putNumber(value, *p == 'u' ? 10 : 16, false, *p == 'X');
                    break;
                }
                default:
                    return false;
            }
            ++p;
        }
        if (total > static_cast<size_t>(INT_MAX)) return false;
        out[total < room ? total : room] = '\0';
        return true;
    }

    int length() const { return static_cast<int>(total); }

  private:
    void put(const char* text, size_t length) {
        if (total < room) memcpy(out + total, text, length < room - total ? length : room - total);
        total += length;
    }

    void putNumber(unsigned long long value, unsigned base, bool negative, bool upper) {
        char text[24];
        char* end = text + sizeof text;
        char* first = base == 10
                          ? digits<10>(value, end, "0123456789")
                          : digits<16>(value, end, upper ? "0123456789ABCDEF" : "0123456789abcdef");
        if (negative) *--first = '-';
        put(first, static_cast<size_t>(end - first));
    }

    // Writes value's digits backwards from end; returns the first. The base is
    // a constant so the division becomes a multiplication.
    template <unsigned Base>
    static char* digits(unsigned long long value, char* end, const char* symbols) {
        do {
            *--end = symbols[value % Base];
            value /= Base;
        } while (value != 0);
        return end;
    }

    char* out;
    size_t room;
    size_t total = 0;
};

// vsnprintf(buffer, capacity, format, args), by the fast path when it can.
int formatLine(char* buffer, size_t capacity, const char* format, va_list args) {
    va_list whole;
    va_copy(whole, args);
    LineWriter writer(buffer, capacity);
    int n =
        writer.format(format, args) ? writer.length() : vsnprintf(buffer, capacity, format, whole);
    va_end(whole);
    return n;
}

// Queues a line that the formatter wrote into `buffer` (kLineBytes) with the
// result `n`: nothing when n <= 0, else the line cut to at most kLineBytes
// bytes, appended to `pending` after its 16-bit length.
void queueLine(std::mutex& queueMutex, std::string& pending, char* buffer, int n) {
    if (n <= 0) return;
    size_t length = static_cast<size_t>(n);
    if (length > kLineBytes - 1) {
        memcpy(buffer + kLineBytes - 4, "...", 3);
        buffer[kLineBytes - 1] = '\0';
        length = kLineBytes;
    }
    // At exactly 4095 the formatter wrote 4094 characters; the line keeps its NUL.
    uint16_t size = static_cast<uint16_t>(length);
    // The append takes a few tens of nanoseconds.
    std::unique_lock<std::mutex> lock = detail::lockBriefly(queueMutex);
    pending.append(reinterpret_cast<const char*>(&size), sizeof size);
    pending.append(buffer, length);
}

}  // namespace

Tracer::Tracer() : name("Tracer"), level(1), running(false) {
    setvbuf(stdout, nullptr, _IONBF, 8192);
}

Tracer::~Tracer() {
    running = false;
    if (sinkTask.valid()) {
        try {
            sinkTask.get();
        } catch (const std::exception& e) {
            syslog(LOG_ERR, "orvane::Tracer::~Tracer() error: %s", e.what());
        }
    }
    try {
        sinkMsg();
    } catch (const std::exception& e) {
        syslog(LOG_ERR, "orvane::Tracer::~Tracer() error: %s", e.what());
    }
}

void Tracer::printLine(const char* format, ...) {
    if (format == nullptr) return;
    // Formatted on the caller's stack, so threads format in parallel and the
    // queue lock covers only the append. The formatter writes what it needs;
    // nothing is zeroed first.
    char buffer[kLineBytes];
    va_list args;
    va_start(args, format);
    int n = formatLine(buffer, kLineBytes - 1, format, args);
    va_end(args);
    queueLine(queueMutex, pending, buffer, n);
}

void Tracer::printLineAt(int lineLevel, const char* cls, const char* method, int line,
                         const char* format, ...) {
    static const char kTags[] = "DIWEF";
    if (format == nullptr || method == nullptr || lineLevel < 0 || lineLevel > 4) return;
    // The header and the text go into one buffer, as print formats a whole line.
    char buffer[kLineBytes];
    int header = (cls == nullptr || cls[0] == '\0')
                     ? snprintf(buffer, kLineBytes - 1, "<%c>%s [%s,L%d] ", kTags[lineLevel],
                                detail::logTime(), method, line)
                     : snprintf(buffer, kLineBytes - 1, "<%c>%s [%s::%s,L%d] ", kTags[lineLevel],
                                detail::logTime(), cls, method, line);
    if (header < 0) return;
    // A header that filled the buffer leaves the text room for its NUL only.
    size_t at = std::min(static_cast<size_t>(header), kLineBytes - 2);
    va_list args;
    va_start(args, format);
    int text = formatLine(buffer + at, kLineBytes - 1 - at, format, args);
    va_end(args);
    if (text < 0) return;
    queueLine(queueMutex, pending, buffer, header + text);
}

void Tracer::setLevel(int newLevel) {
    if (newLevel >= 0 && newLevel <= 4) level = newLevel;
    int heard = newLevel < 0 ? 0 : newLevel;
    for (auto& sink : sinks) sink->onLevelChanged(heard);
}

void Tracer::addSink(std::shared_ptr<TracerSink> sink) {
    if (running || !sink) return;
    sink->onLevelChanged(level);
    // A second console sink hears the level but is not registered.
    if (sink->sinkName() == "STDSink") {
        if (stdSinkAdded) return;
        stdSinkAdded = true;
    }
    std::lock_guard<std::mutex> lock(sinkMutex);
    sinks.push_back(std::move(sink));
}

void Tracer::start() {
    if (running) return;
    // Raised before the sink thread runs: a destructor that comes before the
    // thread's first pass must still be able to stop it.
    running = true;
    try {
        sinkTask = std::async(std::launch::async, [this] { sinkLoop(); });
    } catch (const std::exception& e) {
        running = false;
        syslog(LOG_ERR, "orvane::Tracer::start() error: %s", e.what());
    }
}

void Tracer::sinkLoop() {
    Rate rate(100);
    while (running) {
        sinkMsg();
        rate.sleep();
    }
    running = false;
}

void Tracer::flush() {
    for (auto& sink : sinks) sink->onFlushed();
}

void Tracer::sinkMsg() {
    // A local queue, so that a pass run by a caller other than the sink thread
    // cannot collide with the sink thread's own.
    std::string queued;
    {
        std::lock_guard<std::mutex> lock(queueMutex);
        if (pending.empty()) return;
        pending.swap(queued);
        // Printing goes on in the storage an earlier pass emptied, so a busy
        // queue does not regrow (and fault in fresh pages) every pass.
        pending.swap(spare);
    }
    std::string line;
    for (size_t at = 0; at < queued.size();) {
        uint16_t size;
        memcpy(&size, queued.data() + at, sizeof size);
        at += sizeof size;
        line.assign(queued, at, size);
        at += size;
        int lineLevel = classify(line);
        if (lineLevel < 0) continue;
        std::lock_guard<std::mutex> lock(sinkMutex);
        for (auto& sink : sinks) sink->sink(lineLevel, line);
    }
    // The storage a burst grew is released once a pass fills less than a
    // quarter of it.
    if (queued.capacity() > kKeptQueueBytes && queued.size() * 4 < queued.capacity()) return;
    queued.clear();
    std::lock_guard<std::mutex> lock(queueMutex);
    if (spare.capacity() < queued.capacity()) spare.swap(queued);
}

// ---- TraceDuration ----------------------------------------------------------

TraceDuration::TraceDuration(const std::string& traceName, unsigned int threshold)
    : name(traceName), thresholdMs(threshold), start(Time::fromMono()) {}

TraceDuration::~TraceDuration() {
    Tracer& tracer = Tracer::getInstance();
    if (!tracer.enabled(1)) return;
    Time elapsed = Time::fromMono() - start;
    if (thresholdMs <= elapsed.toMicroSec() / 1000) {
        tracer.print(1, "<I>%s [%s] trace duration: %s s", detail::logTime(), name.c_str(),
                     elapsed.toString().c_str());
    }
}

double TraceDuration::duration() const { return (Time::fromMono() - start).toSec(); }

}  // namespace orvane
