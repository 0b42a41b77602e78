#pragma once

#include <orvane/Export.h>
#include <orvane/UniqueFd.h>

#include <string>
#include <vector>

namespace orvane {

// Direction of a GPIO line.
enum PinDirection { PIN_IN = 0, PIN_OUT = 1 };
// Edges that raise an event on an input line.
enum PinEdge { PIN_EDGE_NONE = 0, PIN_EDGE_RISING = 1, PIN_EDGE_FALLING = 2, PIN_EDGE_BOTH = 3 };

// One GPIO pin through the sysfs interface ("/sys/class/gpio": export,
// direction, value, active_low, edge, unexport). open() exports the pin when
// it is not exported yet, sets its direction and keeps its value file open;
// close() (and the destructor) unexports it again only when open() exported
// it. waitEdge() sleeps in poll(POLLPRI) on the value file until the edge
// chosen with setEdge() arrives.
//
//     PinCtrl led;
//     if (!led.open(17, PIN_OUT)) return false;
//     led.setValue(1);
//     PinCtrl button;
//     button.open(27, PIN_IN);
//     button.setEdge(PIN_EDGE_FALLING);
//     int value = -1;
//     if (button.waitEdge(500000, &value) == 1) { ... }   // -2 after 0.5 s
//
// Failures are logged once and give false, -1 (an error) or -2 (a timeout
// of waitEdge, microseconds, negative waits without limit). The sysfs
// interface is deprecated in the kernel in favour of the character device
// (PinChip below); boards with older kernels have only this one. The root
// of the tree can be given to the constructor, for tests on a tree of
// regular files; programs use the default. No locking: one pin object
// belongs to one thread; each call is one or two small file operations.
class ORVANE_API PinCtrl {
  public:
    PinCtrl();
    // Pins under `root` instead of "/sys/class/gpio" (a tree of regular files in tests).
    explicit PinCtrl(const std::string& root);
    ~PinCtrl();
    PinCtrl(const PinCtrl&) = delete;
    PinCtrl& operator=(const PinCtrl&) = delete;

    // Exports `pin` (0 or more) unless exported, sets `direction` (PIN_IN or
    // PIN_OUT; an output starts low) and opens the value file. An open pin
    // is closed first.
    bool open(int pin, int direction);
    // Closes the value file and unexports the pin if open() exported it.
    // True also when nothing was open.
    bool close();
    // True while a pin's value file is open.
    bool isOpen() const { return value_.valid(); }
    // The open pin's number, -1 when closed.
    int pin() const { return pin_; }

    // Writes `pin` to "<root>/export" / "<root>/unexport". exportPin waits up
    // to 1 s for the pin's directory to appear; an exported pin is success.
    bool exportPin(int pin);
    // Unexports `pin`; false (logged) for a negative pin or when the write fails.
    bool unexportPin(int pin);

    // PIN_IN, or PIN_OUT (written as "low": the output starts inactive) for
    // the open pin; false (logged) for another value or a failed write.
    bool setDirection(int direction);
    // PIN_IN or PIN_OUT, -1 on failure.
    int getDirection();
    // 0 or 1 (the logical level: inverted when active_low is set), -1.
    int getValue();
    // value 0 or 1; the pin must be an output.
    bool setValue(int value);
    // Sets the open pin's active_low attribute; false (logged) when it cannot be written.
    bool setActiveLow(bool activeLow);
    // 1 or 0, -1 on failure.
    int getActiveLow();
    // One of PinEdge; the pin must be an input for anything but PIN_EDGE_NONE.
    bool setEdge(int edge);
    // One of PinEdge, -1 on failure.
    int getEdge();
    // Waits at most timeoutUs for the edge chosen with setEdge (refused, -1,
    // while it is PIN_EDGE_NONE). 1 when an edge came, with the value read
    // after it in *value when given; -2 on timeout; -1 on an error.
    int waitEdge(int timeoutUs, int* value = nullptr);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // "<root>/gpio<pin>/<attr>"; "" (logged) when no pin is open.
    std::string attrPath(const char* attr, const char* method) const;
    bool writeAttr(const char* attr, const std::string& text, const char* method);
    std::string readAttr(const char* attr, const char* method);
    int readValue(const char* method);

    std::string root_;
    int pin_;
    bool exported_;
    UniqueFd value_;
};

// One edge event of PinChip::waitEvent.
struct PinEvent {
    unsigned int offset = 0;             // the line on its chip
    bool rising = false;                 // rising (inactive to active) or falling
    unsigned long long timestampNs = 0;  // CLOCK_MONOTONIC, nanoseconds
    unsigned int seqno = 0;              // the event's number among all lines of the request
};

// GPIO lines through the character device "/dev/gpiochip<N>" (the kernel's
// uAPI v2): request a set of lines of one chip with a direction, edge
// detection and active-low, then read or set their values and wait for edge
// events, which the kernel timestamps. The lines stay requested (and outputs
// keep their level) until releaseLines(), close() or destruction; another
// process cannot request them meanwhile.
//
//     PinChip chip;
//     if (!chip.open(0) || !chip.requestLines({17, 27}, PIN_IN, PIN_EDGE_BOTH)) return false;
//     PinEvent event;
//     while (chip.waitEvent(&event, 1000000) == 1)
//         printf("line %u %s at %llu ns\n", event.offset, event.rising ? "up" : "down",
//                event.timestampNs);
//
// Failures are logged once and give false, -1, or -2 (a timeout of
// waitEvent). No locking: one chip object belongs to one thread; each call
// is one ioctl or read on the request's descriptor.
class ORVANE_API PinChip {
  public:
    PinChip();
    ~PinChip();
    PinChip(const PinChip&) = delete;
    PinChip& operator=(const PinChip&) = delete;

    // Opens "/dev/gpiochip<chip>" and reads its label and line count. An open
    // chip is closed first.
    bool open(int chip);
    // Releases the lines and closes the chip; true also when nothing was open.
    bool close();
    // True while a chip is open.
    bool isOpen() const { return chip_.valid(); }
    // The chip's label and number of lines; "" and 0 while closed.
    const std::string& label() const { return label_; }
    // The number of lines of the open chip; 0 while closed.
    int lineCount() const { return lines_; }

    // Requests `offsets` (1 to 64 distinct lines below lineCount()) as
    // inputs or outputs; edge (one of PinEdge) needs PIN_IN. Outputs start
    // inactive. An earlier request of this object is released first (also
    // when this one then fails). `consumer` is the name the kernel shows as
    // the lines' user.
    bool requestLines(const std::vector<unsigned int>& offsets, int direction,
                      int edge = PIN_EDGE_NONE, bool activeLow = false,
                      const std::string& consumer = "orvane");
    // Gives the requested lines back; true also when none were requested.
    bool releaseLines();
    // The logical value (0 or 1) of one requested line, -1 on failure.
    int getValue(unsigned int offset);
    // Sets one requested output line to value 0 or 1.
    bool setValue(unsigned int offset, int value);
    // Waits at most timeoutUs for an edge event on the requested lines: 1
    // with *event filled, -2 on timeout, -1 on an error.
    int waitEvent(PinEvent* event, int timeoutUs);

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;

  private:
    // The position of `offset` among the requested lines, or -1 (logged).
    int lineIndex(unsigned int offset, const char* method) const;

    UniqueFd chip_;
    UniqueFd request_;
    std::string label_;
    int lines_;
    std::vector<unsigned int> requested_;
};

}  // namespace orvane
