#include <linux/can.h>
#include <net/if.h>
#include <orvane/SocketCAN.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <type_traits>

#include "log/LogLine.h"
#include "net/SocketIo.h"

namespace orvane {

namespace {

constexpr int kFrameBytes = static_cast<int>(sizeof(can_frame));

}  // namespace

// ---- CANFrame ---------------------------------------------------------------

CANFrame::CANFrame() : canid_(0), dlc(0), pad(), payload() {
    // Checked here, where the private fields are visible.
    static_assert(std::is_standard_layout<CANFrame>::value, "CANFrame must be standard-layout");
    static_assert(sizeof(CANFrame) == sizeof(can_frame), "CANFrame size");
    static_assert(offsetof(CANFrame, canid_) == offsetof(can_frame, can_id), "can_id offset");
    static_assert(offsetof(CANFrame, dlc) == offsetof(can_frame, can_dlc), "can_dlc offset");
    static_assert(offsetof(CANFrame, pad) == offsetof(can_frame, __pad), "padding offset");
    static_assert(offsetof(CANFrame, payload) == offsetof(can_frame, data), "data offset");
    static_assert(sizeof(payload) == sizeof(can_frame::data), "data size");
}

CANFrame::CANFrame(unsigned int id, const char* data, unsigned char len) : CANFrame() {
    canid_ = id;
    if (data == nullptr || len < 1 || len > 8) return;
    dlc = len;
    memcpy(payload, data, len);
}

CANFrame::CANFrame(unsigned int id, const char* data, unsigned char len, unsigned char format)
    : CANFrame(format == 1 ? (id | CAN_EFF_FLAG) : id, data, len) {}

// ---- SocketCAN --------------------------------------------------------------

SocketCAN::SocketCAN() : className("SocketCAN") {}

bool SocketCAN::open(const std::string& name, unsigned short) {
    if (fd_.valid()) {
        ifName = name;
        return true;
    }
    fd_.reset(socket(AF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW));
    if (!fd_) {
        int err = errno;
        ORVANE_ERROR("open socket error:%s", strerror(err));
        return false;
    }
    ifreq request{};
    // The size limit is the name's own length, so the lookup uses the name
    // without its last character; callers rely on this.
    if (!name.empty())
        snprintf(request.ifr_name, std::min(name.size(), sizeof request.ifr_name), "%s",
                 name.c_str());
    sockaddr_can address{};
    address.can_family = AF_CAN;
    if (ioctl(fd_.get(), SIOCGIFINDEX, &request) != 0) {
        close();
        return false;
    }
    address.can_ifindex = request.ifr_ifindex;
    if (bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close();
        return false;
    }
    ifName = name;
    return true;
}

bool SocketCAN::close() { return Socket::close(); }

int SocketCAN::peekData(char*, int, int) { return -1; }

int SocketCAN::setOption(int, int) { return -1; }

int SocketCAN::getOption(int) { return -1; }

bool SocketCAN::setConnection(const std::string&, unsigned short) { return false; }

int SocketCAN::recvData(char* buf, int len, int timeoutUs) {
    if (buf == nullptr || len < kFrameBytes) {
        ORVANE_ERROR("param error,len:%d,min:%d.", len, kFrameBytes);
        return -1;
    }
    if (!fd_) {
        ORVANE_ERROR("socket not open.");
        return -1;
    }
    return detail::receiveReady(className, __func__, fd_.get(), buf, kFrameBytes, timeoutUs, false);
}

int SocketCAN::sendData(const char* data, int len, int timeoutUs) {
    if (!detail::checkTransfer(className, __func__, data, len, fd_.get())) return -1;
    return detail::sendReady(className, __func__, fd_.get(), data, len, timeoutUs);
}

namespace {

// 16 bytes moved means one frame: 0; errors and timeouts pass through.
int frameResult(int n) { return n == kFrameBytes ? 0 : (n == -2 ? -2 : -1); }

}  // namespace

int SocketCAN::recvFrame(CANFrame* frame, int timeoutUs) {
    char* bytes = frame == nullptr ? nullptr : reinterpret_cast<char*>(frame);
    return frameResult(recvData(bytes, kFrameBytes, timeoutUs));
}

int SocketCAN::sendFrame(const CANFrame& frame, int timeoutUs) {
    return frameResult(sendData(reinterpret_cast<const char*>(&frame), kFrameBytes, timeoutUs));
}

}  // namespace orvane
