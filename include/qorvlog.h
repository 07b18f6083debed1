// The log of the board maker's driver library, calddlld.dll: filters with per-level settings, and the lines themselves.
#pragma once

#include <cstdint>

#ifdef CALDDLLD_IMPLEMENTATION
#define QORVLOG_API extern "C"
#else
#define QORVLOG_API extern "C" __declspec(dllimport)
#endif

struct QorvLogFilter;

// Non-zero = QorvLogInit has been called.
QORVLOG_API int QorvLogInitialized();
// Names the component that logs. The last three arguments are null, 0 and 1.
QORVLOG_API int QorvLogInit(const char* component, const char* null, uint32_t zero, uint32_t one);
// A new filter, or null. The last four arguments are 1, 0, 0 and 0.
QORVLOG_API QorvLogFilter* QorvLogFilterNew(const char* component, const char* filter, uint32_t one, uint32_t zero1,
                                            uint32_t zero2, uint32_t zero3);
// Names a level of the filter and says whether it is wanted.
QORVLOG_API void QorvLogFilterAddSetting(QorvLogFilter* filter, int level, const char* name, int on);
// Registers a copy of the filter under the client's key.
QORVLOG_API void QorvLogAddFilter(uint32_t client, QorvLogFilter* filter);
QORVLOG_API void QorvLogFilterDelete(QorvLogFilter* filter);
// Non-zero = lines of this level are wanted.
QORVLOG_API int QorvLogIsInterested(uint32_t client, int level);
QORVLOG_API void QorvLogLogMsg(uint32_t client, int level, const char* line, const char* sourceFile,
                               uint32_t sourceLine);

#undef QORVLOG_API
