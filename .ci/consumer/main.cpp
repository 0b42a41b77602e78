// A program built against an installed orvane: it logs through the console
// sink, runs one task on a task queue and checks the result.
#include <orvane/orvane.h>

#include <atomic>
#include <memory>
#include <string>

int main() {
    orvane::Tracer& tracer = orvane::Tracer::getInstance();
    tracer.addSink(std::make_shared<orvane::STDSink>());
    tracer.start();

    std::atomic<bool> ran{false};
    {
        orvane::AsyncTaskQueue queue("consumer");
        if (!queue.init(1, orvane::SchedParam())) return 1;
        queue.putTask([&ran](const std::string&) { ran = true; }, "hello");
        for (int i = 0; i < 200 && !ran; ++i) orvane::Thread::msleep(5);
    }
    tracer.print(1, "<C>consumer: %s", ran ? "task ran" : "task did not run");
    return ran ? 0 : 1;
}
