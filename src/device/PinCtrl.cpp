#include <fcntl.h>
#include <linux/gpio.h>
#include <orvane/PinCtrl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "io/SmallFile.h"
#include "io/WaitFd.h"
#include "log/LogLine.h"

namespace orvane {

namespace {

const char* const kEdgeNames[] = {"none", "rising", "falling", "both"};

bool validDirection(int direction) { return direction == PIN_IN || direction == PIN_OUT; }
bool validEdge(int edge) { return edge >= PIN_EDGE_NONE && edge <= PIN_EDGE_BOTH; }

// The first word of a sysfs attribute ("in\n" -> "in").
std::string firstWord(const std::string& text) {
    size_t end = text.find_first_of(" \t\r\n");
    return text.substr(0, end);
}

// "<root>/gpio<pin>": the directory the kernel makes for an exported pin.
std::string pinDir(const std::string& root, int pin) {
    return root + "/gpio" + std::to_string(pin);
}

bool isDirectory(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

// ---- PinCtrl ----------------------------------------------------------------

PinCtrl::PinCtrl() : PinCtrl("/sys/class/gpio") {}

PinCtrl::PinCtrl(const std::string& root)
    : className("PinCtrl"), root_(root), pin_(-1), exported_(false) {}

PinCtrl::~PinCtrl() { close(); }

bool PinCtrl::exportPin(int pin) {
    if (pin < 0) {
        ORVANE_ERROR("bad pin:%d", pin);
        return false;
    }
    std::string dir = pinDir(root_, pin);
    if (isDirectory(dir)) return true;
    int err = detail::writeSmallFile(root_ + "/export", std::to_string(pin));
    if (err != 0) {
        ORVANE_ERROR("export gpio%d error:%s", pin, strerror(err));
        return false;
    }
    // The kernel creates the directory at once; udev may still be changing
    // its permissions, so give it a moment.
    for (int i = 0; i < 100 && !isDirectory(dir); ++i) {
        timespec pause{0, 10 * 1000 * 1000};
        nanosleep(&pause, nullptr);
    }
    if (!isDirectory(dir)) {
        ORVANE_ERROR("gpio%d did not appear in %s", pin, root_.c_str());
        return false;
    }
    return true;
}

bool PinCtrl::unexportPin(int pin) {
    if (pin < 0) {
        ORVANE_ERROR("bad pin:%d", pin);
        return false;
    }
    int err = detail::writeSmallFile(root_ + "/unexport", std::to_string(pin));
    if (err != 0) {
        ORVANE_ERROR("unexport gpio%d error:%s", pin, strerror(err));
        return false;
    }
    return true;
}

bool PinCtrl::open(int pin, int direction) {
    close();
    if (pin < 0 || !validDirection(direction)) {
        ORVANE_ERROR("bad pin:%d or direction:%d (0 in, 1 out)", pin, direction);
        return false;
    }
    bool wasExported = isDirectory(pinDir(root_, pin));
    if (!exportPin(pin)) return false;
    pin_ = pin;
    exported_ = !wasExported;
    std::string valuePath = pinDir(root_, pin) + "/value";
    if (setDirection(direction)) {
        value_.reset(::open(valuePath.c_str(), O_RDWR | O_CLOEXEC));
        if (value_) return true;
        int err = errno;
        ORVANE_ERROR("open %s error:%s", valuePath.c_str(), strerror(err));
    }
    close();
    return false;
}

bool PinCtrl::close() {
    value_.reset();
    if (exported_) unexportPin(pin_);
    exported_ = false;
    pin_ = -1;
    return true;
}

std::string PinCtrl::attrPath(const char* attr, const char* method) const {
    if (pin_ < 0) {
        ORVANE_ERROR_IN(method, "pin not open");
        return "";
    }
    return pinDir(root_, pin_) + "/" + attr;
}

bool PinCtrl::writeAttr(const char* attr, const std::string& text, const char* method) {
    std::string path = attrPath(attr, method);
    if (path.empty()) return false;
    int err = detail::writeSmallFile(path, text);
    if (err != 0) {
        ORVANE_ERROR_IN(method, "write %s error:%s", path.c_str(), strerror(err));
        return false;
    }
    return true;
}

std::string PinCtrl::readAttr(const char* attr, const char* method) {
    std::string path = attrPath(attr, method);
    if (path.empty()) return "";
    std::string text;
    int err = detail::readSmallFile(path, &text);
    if (err != 0) {
        ORVANE_ERROR_IN(method, "read %s error:%s", path.c_str(), strerror(err));
        return "";
    }
    text = firstWord(text);
    if (text.empty()) ORVANE_ERROR_IN(method, "%s is empty", path.c_str());
    return text;
}

bool PinCtrl::setDirection(int direction) {
    if (!validDirection(direction)) {
        ORVANE_ERROR("bad direction:%d (0 in, 1 out)", direction);
        return false;
    }
    // "low" makes an output that starts inactive without a glitch.
    return writeAttr("direction", direction == PIN_IN ? "in" : "low", __func__);
}

int PinCtrl::getDirection() {
    std::string text = readAttr("direction", __func__);
    if (text.empty()) return -1;
    if (text == "in") return PIN_IN;
    if (text == "out" || text == "low" || text == "high") return PIN_OUT;
    ORVANE_ERROR("unknown direction:'%s'", text.c_str());
    return -1;
}

int PinCtrl::readValue(const char* method) {
    if (!value_) {
        ORVANE_ERROR_IN(method, "pin not open");
        return -1;
    }
    char text[2] = {};
    ssize_t n = pread(value_.get(), text, sizeof text, 0);
    if (n < 0) {
        int err = errno;
        ORVANE_ERROR_IN(method, "read gpio%d value error:%s", pin_, strerror(err));
        return -1;
    }
    if (n < 1 || (text[0] != '0' && text[0] != '1')) {
        ORVANE_ERROR_IN(method, "gpio%d value unreadable", pin_);
        return -1;
    }
    return text[0] - '0';
}

int PinCtrl::getValue() { return readValue(__func__); }

bool PinCtrl::setValue(int value) {
    if (value != 0 && value != 1) {
        ORVANE_ERROR("bad value:%d (0 or 1)", value);
        return false;
    }
    if (!value_) {
        ORVANE_ERROR("pin not open");
        return false;
    }
    char text = static_cast<char>('0' + value);
    if (pwrite(value_.get(), &text, 1, 0) != 1) {
        int err = errno;
        ORVANE_ERROR("write gpio%d value error:%s", pin_, strerror(err));
        return false;
    }
    return true;
}

bool PinCtrl::setActiveLow(bool activeLow) {
    return writeAttr("active_low", activeLow ? "1" : "0", __func__);
}

int PinCtrl::getActiveLow() {
    std::string text = readAttr("active_low", __func__);
    if (text.empty()) return -1;
    if (text == "0" || text == "1") return text == "1";
    ORVANE_ERROR("unknown active_low:'%s'", text.c_str());
    return -1;
}

bool PinCtrl::setEdge(int edge) {
    if (!validEdge(edge)) {
        ORVANE_ERROR("bad edge:%d (0 none, 1 rising, 2 falling, 3 both)", edge);
        return false;
    }
    return writeAttr("edge", kEdgeNames[edge], __func__);
}

int PinCtrl::getEdge() {
    std::string text = readAttr("edge", __func__);
    if (text.empty()) return -1;
    for (int edge = PIN_EDGE_NONE; edge <= PIN_EDGE_BOTH; ++edge) {
        if (text == kEdgeNames[edge]) return edge;
    }
    ORVANE_ERROR("unknown edge:'%s'", text.c_str());
    return -1;
}

int PinCtrl::waitEdge(int timeoutUs, int* value) {
    if (!value_) {
        ORVANE_ERROR("pin not open");
        return -1;
    }
    std::string edge = readAttr("edge", __func__);
    if (edge.empty()) return -1;
    if (edge == "none") {
        ORVANE_ERROR("gpio%d has no edge set", pin_);
        return -1;
    }
    // Reading the value arms the next notification; the kernel then reports
    // the edge as POLLPRI | POLLERR.
    if (readValue(__func__) < 0) return -1;
    pollfd entry{value_.get(), POLLPRI | POLLERR, 0};
    timespec limit{timeoutUs / 1000000, static_cast<long>(timeoutUs % 1000000) * 1000};
    int n = ppoll(&entry, 1, timeoutUs >= 0 ? &limit : nullptr, nullptr);
    if (n < 0) {
        int err = errno;
        ORVANE_ERROR("poll gpio%d error:%s", pin_, strerror(err));
        return -1;
    }
    if (n == 0) return -2;
    int now = readValue(__func__);
    if (now < 0) return -1;
    if (value != nullptr) *value = now;
    return 1;
}

// ---- PinChip ----------------------------------------------------------------

PinChip::PinChip() : className("PinChip"), lines_(0) {}

PinChip::~PinChip() { close(); }

bool PinChip::open(int chip) {
    close();
    if (chip < 0) {
        ORVANE_ERROR("bad chip number:%d", chip);
        return false;
    }
    std::string path = "/dev/gpiochip" + std::to_string(chip);
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (!fd) {
        int err = errno;
        ORVANE_ERROR("open %s error:%s", path.c_str(), strerror(err));
        return false;
    }
    gpiochip_info info{};
    if (ioctl(fd.get(), GPIO_GET_CHIPINFO_IOCTL, &info) != 0) {
        int err = errno;
        ORVANE_ERROR("%s chip info error:%s", path.c_str(), strerror(err));
        return false;
    }
    chip_ = std::move(fd);
    label_.assign(info.label, strnlen(info.label, sizeof info.label));
    lines_ = static_cast<int>(info.lines);
    return true;
}

bool PinChip::close() {
    releaseLines();
    chip_.reset();
    label_.clear();
    lines_ = 0;
    return true;
}

bool PinChip::releaseLines() {
    request_.reset();
    requested_.clear();
    return true;
}

bool PinChip::requestLines(const std::vector<unsigned int>& offsets, int direction, int edge,
                           bool activeLow, const std::string& consumer) {
    if (!chip_) {
        ORVANE_ERROR("chip not open");
        return false;
    }
    if (offsets.empty() || offsets.size() > GPIO_V2_LINES_MAX) {
        ORVANE_ERROR("bad line count:%zu (1 to %d)", offsets.size(), GPIO_V2_LINES_MAX);
        return false;
    }
    for (size_t i = 0; i < offsets.size(); ++i) {
        bool repeated = std::find(offsets.begin(), offsets.begin() + static_cast<std::ptrdiff_t>(i),
                                  offsets[i]) != offsets.begin() + static_cast<std::ptrdiff_t>(i);
        if (offsets[i] >= static_cast<unsigned int>(lines_) || repeated) {
            ORVANE_ERROR("bad line:%u (%s)", offsets[i],
                         repeated ? "repeated" : "beyond the chip's lines");
            return false;
        }
    }
    if (!validDirection(direction) || !validEdge(edge) ||
        (edge != PIN_EDGE_NONE && direction != PIN_IN)) {
        ORVANE_ERROR("bad direction:%d or edge:%d (edges need an input)", direction, edge);
        return false;
    }
    gpio_v2_line_request req{};
    for (size_t i = 0; i < offsets.size(); ++i) req.offsets[i] = offsets[i];
    req.num_lines = static_cast<__u32>(offsets.size());
    strncpy(req.consumer, consumer.c_str(), sizeof req.consumer - 1);
    __u64 flags = direction == PIN_IN ? GPIO_V2_LINE_FLAG_INPUT : GPIO_V2_LINE_FLAG_OUTPUT;
    if (edge & PIN_EDGE_RISING) flags |= GPIO_V2_LINE_FLAG_EDGE_RISING;
    if (edge & PIN_EDGE_FALLING) flags |= GPIO_V2_LINE_FLAG_EDGE_FALLING;
    if (activeLow) flags |= GPIO_V2_LINE_FLAG_ACTIVE_LOW;
    req.config.flags = flags;
    releaseLines();
    if (ioctl(chip_.get(), GPIO_V2_GET_LINE_IOCTL, &req) != 0) {
        int err = errno;
        ORVANE_ERROR("request of %zu lines error:%s", offsets.size(), strerror(err));
        return false;
    }
    // The request descriptor comes without close-on-exec on older kernels.
    fcntl(req.fd, F_SETFD, FD_CLOEXEC);
    request_.reset(req.fd);
    requested_ = offsets;
    return true;
}

int PinChip::lineIndex(unsigned int offset, const char* method) const {
    if (!request_) {
        ORVANE_ERROR_IN(method, "no lines requested");
        return -1;
    }
    auto found = std::find(requested_.begin(), requested_.end(), offset);
    if (found == requested_.end()) {
        ORVANE_ERROR_IN(method, "line %u is not requested", offset);
        return -1;
    }
    return static_cast<int>(found - requested_.begin());
}

int PinChip::getValue(unsigned int offset) {
    int index = lineIndex(offset, __func__);
    if (index < 0) return -1;
    gpio_v2_line_values values{};
    values.mask = 1ULL << index;
    if (ioctl(request_.get(), GPIO_V2_LINE_GET_VALUES_IOCTL, &values) != 0) {
        int err = errno;
        ORVANE_ERROR("get line %u error:%s", offset, strerror(err));
        return -1;
    }
    return (values.bits >> index) & 1 ? 1 : 0;
}

bool PinChip::setValue(unsigned int offset, int value) {
    if (value != 0 && value != 1) {
        ORVANE_ERROR("bad value:%d (0 or 1)", value);
        return false;
    }
    int index = lineIndex(offset, __func__);
    if (index < 0) return false;
    gpio_v2_line_values values{};
    values.mask = 1ULL << index;
    values.bits = static_cast<__u64>(value) << index;
    if (ioctl(request_.get(), GPIO_V2_LINE_SET_VALUES_IOCTL, &values) != 0) {
        int err = errno;
        ORVANE_ERROR("set line %u error:%s", offset, strerror(err));
        return false;
    }
    return true;
}

int PinChip::waitEvent(PinEvent* event, int timeoutUs) {
    if (event == nullptr) {
        ORVANE_ERROR("param error: event is null");
        return -1;
    }
    if (!request_) {
        ORVANE_ERROR("no lines requested");
        return -1;
    }
    int ready = detail::awaitFd(className, __func__, request_.get(), false, timeoutUs,
                                "event fd not ready");
    if (ready < 1) return ready;
    gpio_v2_line_event raw{};
    ssize_t n = read(request_.get(), &raw, sizeof raw);
    if (n != static_cast<ssize_t>(sizeof raw)) {
        int err = n < 0 ? errno : EIO;
        ORVANE_ERROR("read event error:%s", strerror(err));
        return -1;
    }
    event->offset = raw.offset;
    event->rising = raw.id == GPIO_V2_LINE_EVENT_RISING_EDGE;
    event->timestampNs = raw.timestamp_ns;
    event->seqno = raw.seqno;
    return 1;
}

}  // namespace orvane
