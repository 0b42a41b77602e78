#pragma once

// The whole public interface of orvane: every public header.
// clang-format off
#include <orvane/AnyPacket.h>
#include <orvane/Application.h>
#include <orvane/ArgOption.h>
#include <orvane/AsyncTaskQueue.h>
#include <orvane/ConsoleIn.h>
#include <orvane/Coroutine.h>
#include <orvane/DataBuffer.h>
#include <orvane/Delayer.h>
#include <orvane/Directory.h>
#include <orvane/Event.h>
#include <orvane/EventLoop.h>
#include <orvane/Export.h>
#include <orvane/FSMachine.h>
#include <orvane/File.h>
#include <orvane/IODevice.h>
#include <orvane/MemShared.h>
#include <orvane/MsgQueue.h>
#include <orvane/NetUtil.h>
#include <orvane/PinCtrl.h>
#include <orvane/Pluglet.h>
#include <orvane/Poller.h>
#include <orvane/Semaphore.h>
#include <orvane/SerialPort.h>
#include <orvane/Server.h>
#include <orvane/SignalHandler.h>
#include <orvane/Singleton.h>
#include <orvane/Socket.h>
#include <orvane/SocketCAN.h>
#include <orvane/SocketPair.h>
#include <orvane/SpiDev.h>
#include <orvane/StrUtil.h>
#include <orvane/SysStat.h>
#include <orvane/System.h>
#include <orvane/Thread.h>
#include <orvane/Time.h>
#include <orvane/Timer.h>
#include <orvane/Tracer.h>
#include <orvane/UniqueFd.h>
#include <orvane/TracerSink.h>
// clang-format on
