// What every fuzzer does first: the library logs all it can, to nowhere.

#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/)
{
    static const log4cplus::Initializer logging;
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL); // messages are built, too
    return 0;
}
