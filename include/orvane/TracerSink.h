#pragma once

#include <orvane/Export.h>

#include <atomic>
#include <memory>
#include <string>

namespace orvane {

class UdpSocket;

// One output of the logger. The Tracer's sink thread calls sink() for every
// finished line, one line at a time and never concurrently with itself;
// onLevelChanged() runs on whichever thread calls Tracer::setLevel.
class ORVANE_API TracerSink {
  public:
    TracerSink();
    virtual ~TracerSink();
    TracerSink(const TracerSink&) = delete;
    TracerSink& operator=(const TracerSink&) = delete;

    // Called on the sink thread after each batch of lines was delivered; does nothing by default.
    virtual void onFlushed();
    // Called by Tracer::setLevel with the new level; the base stores it as the sink's level.
    virtual void onLevelChanged(int level);
    // Delivers one line; `level` comes from the line's tag (0..4, or a user level above 4).
    virtual void sink(int level, const std::string& line) = 0;

    // The base's own name, "TracerSink" for every sink.
    const std::string& sinkName() const { return name; }
    // The sink's level, as last set through onLevelChanged. Any thread.
    int sinkLevel() const { return level.load(); }

  protected:
    // The base's own name, "TracerSink".
    std::string name;
    // The sink's level (see sinkLevel).
    std::atomic<int> level;
};

// Writes each line of levels 0..4 to standard output, coloured by level
// (level 1 plain), followed by a newline; user levels above 4 are dropped.
// Add one only: Tracer::addSink's check for a second console sink compares
// the base name ("TracerSink"), never "STDSink", so two STDSinks both print
// every line.
class ORVANE_API STDSink : public TracerSink {
  public:
    STDSink();
    void sink(int lineLevel, const std::string& line) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
};

// Writes each line of levels 0..4 to the system log: 1 info, 2 warning,
// 3 error, 0 and 4 debug. No colours; the process's default syslog identity.
class ORVANE_API SyslogSink : public TracerSink {
  public:
    SyslogSink();
    void sink(int lineLevel, const std::string& line) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
};

// Sends each line as one UDP datagram to a fixed peer, so that the log can
// be watched from another machine: the line coloured as on the console
// (levels above 4 bold green), then a newline; nothing else. Levels 0..4 are
// always sent; a user level above 4 only when it is at most the sink's own
// level (set through Tracer::setLevel or addSink). A sink whose socket could
// not be opened stays silent; send errors are ignored, never retried.
class ORVANE_API UDPSink : public TracerSink {
  public:
    // A sink sending to `peer`:`port` from a UDP socket on an ephemeral port; a socket that cannot
    // be opened leaves the sink silent (logged once).
    UDPSink(const std::string& peer, unsigned short port);
    ~UDPSink() override;
    // Stores the level, which decides the user levels above 4 that are sent.
    void onLevelChanged(int newLevel) override;
    void sink(int lineLevel, const std::string& line) override;

  protected:
    // This class's own name, printed in the log lines of the operations it defines.
    std::string className;
    // The socket the datagrams leave from; empty when it could not be opened.
    std::shared_ptr<UdpSocket> socket;
};

}  // namespace orvane
