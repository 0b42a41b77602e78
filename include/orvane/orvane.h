#pragma once

// The whole public interface of orvane.

#include <orvane/Application.h>
#include <orvane/AsyncTaskQueue.h>
#include <orvane/Export.h>
#include <orvane/SignalHandler.h>
#include <orvane/Singleton.h>
#include <orvane/StrUtil.h>
#include <orvane/System.h>
#include <orvane/Thread.h>
#include <orvane/Time.h>
#include <orvane/Tracer.h>
#include <orvane/TracerSink.h>

#include <orvane/AnyPacket.h>
#include <orvane/DataBuffer.h>
