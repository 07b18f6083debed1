// The door between the provider and the test program. The test calddlld.dll has no behaviour of its own: each of its
// exports calls the function of the same name in the table that the test program has installed. So the script, its
// C++ objects and the journal all live in one module, the test program.
#pragma once

#include "calddlld.h"
#include "qorvlog.h"

// Every function of the interface: result, name, parameters, arguments.
#define DRIVER_FUNCTIONS(X)                                                                                           \
    X(int, DornInitialize, (), ())                                                                                    \
    X(void, DornShutdown, (), ())                                                                                     \
    X(int, DornModuleInfo, (void* null, DornModuleInfoRecord* record), (null, record))                                \
    X(DornLine*, DornLineAttach, (DornAttachRecord * record), (record))                                               \
    X(int, DornSessionDetach, (DornLine * line, DornAttachRecord * record), (line, record))                           \
    X(uint32_t, DornLineUnitGet, (DornLine * line), (line))                                                           \
    X(int, DornLineCapCheck, (DornLine * line, int capability), (line, capability))                                   \
    X(int, DornLineAlert, (DornAlertRecord * record), (record))                                                       \
    X(int, DornLineReset, (DornLine * line, DornResetRecord * record), (line, record))                                \
    X(int, DornLineWaitForCallISDN, (DornLine * line, DornWaitForCallRecord * record), (line, record))                \
    X(int, DornLineAnswerISDN, (DornLine * line, DornLineResultRecord * record), (line, record))                      \
    X(int, DornLineTerminateCallISDN, (DornLine * line, DornLineResultRecord * record), (line, record))               \
    X(int, DornLineCCProtocolGet, (DornLine * line, DornProtocolRecord * record), (line, record))                     \
    X(int, DornCallSetup, (DornLine * line, DornCallRecord * record), (line, record))                                 \
    X(int, DornCallWaitForComplete, (DornLine * line, DornCallRecord * record), (line, record))                       \
    X(int, DornCallWaitForRelease, (DornLine * line, DornCallRecord * record), (line, record))                        \
    X(uint32_t*, DornLineStateAccess, (DornLine * line), (line))                                                      \
    X(DornIncomingCmdFunc*, DornLineIncomingCmdFuncAccess, (DornLine * line), (line))                                 \
    X(const uint8_t*, DornLineDcsGet, (DornLine * line), (line))                                                      \
    X(const char*, DornErrorMessage, (DornLine * line), (line))                                                       \
    X(int, DornGetTaggedValues, (DornReport * report, DornTaggedValue * value), (report, value))                      \
    X(int32_t, DornParseTaggedValueInt, (const DornTaggedValue* value), (value))                                      \
    X(int, DornFaxHeader, (DornLine * line, DornFaxRecord * record), (line, record))                                  \
    X(int, DornFaxSetLocalId, (DornLine * line, DornFaxRecord * record), (line, record))                              \
    X(int, DornFaxSetReceiveFmt, (DornLine * line, DornFaxRecord * record), (line, record))                           \
    X(int, DornFaxBeginSendTiff, (DornLine * line, DornFaxRecord * record), (line, record))                           \
    X(int, DornFaxGetRemoteInfo, (DornLine * line, DornFaxRecord * record), (line, record))                           \
    X(int, DornFaxWaitForTraining, (DornLine * line, DornFaxRecord * record), (line, record))                         \
    X(int, DornFaxSendPageTiff, (DornLine * line, DornFaxRecord * record), (line, record))                            \
    X(int, DornFaxNextPageTiff, (DornLine * line, DornFaxRecord * record), (line, record))                            \
    X(int, DornFaxEndOfDocument, (DornLine * line, DornFaxRecord * record), (line, record))                           \
    X(int, DornFaxBeginReceive, (DornLine * line, DornFaxRecord * record), (line, record))                            \
    X(int, DornFaxEndReception, (DornLine * line, DornFaxRecord * record), (line, record))                            \
    X(int, DornFaxRcvPageTiff, (DornLine * line, DornFaxRecord * record), (line, record))                             \
    X(DornTiff*, DornTiffOpen, (DornTiffRecord * record), (record))                                                   \
    X(int, DornTiffClose, (DornTiffRecord * record), (record))                                                        \
    X(int, DornTiffReadIFD, (DornTiffRecord * record), (record))                                                      \
    X(int, DornTiffWriteImage, (DornTiffRecord * record), (record))                                                   \
    X(int, DornTiffWriteRes, (DornTiffRecord * record), (record))                                                     \
    X(int, DornTiffWriteIFD, (DornTiffRecord * record), (record))                                                     \
    X(int, _mdll_fseek, (void* stream, long offset, int origin), (stream, offset, origin))                            \
    X(long, _mdll_ftell, (void* stream), (stream))                                                                    \
    X(size_t, _mdll_fwrite, (const void* data, size_t size, size_t count, void* stream), (data, size, count, stream)) \
    X(int, QorvLogInitialized, (), ())                                                                                \
    X(int, QorvLogInit, (const char* component, const char* null, uint32_t zero, uint32_t one),                       \
      (component, null, zero, one))                                                                                   \
    X(QorvLogFilter*, QorvLogFilterNew,                                                                               \
      (const char* component, const char* filter, uint32_t one, uint32_t zero1, uint32_t zero2, uint32_t zero3),      \
      (component, filter, one, zero1, zero2, zero3))                                                                  \
    X(void, QorvLogFilterAddSetting, (QorvLogFilter * filter, int level, const char* name, int on),                   \
      (filter, level, name, on))                                                                                      \
    X(void, QorvLogAddFilter, (uint32_t client, QorvLogFilter * filter), (client, filter))                            \
    X(void, QorvLogFilterDelete, (QorvLogFilter * filter), (filter))                                                  \
    X(int, QorvLogIsInterested, (uint32_t client, int level), (client, level))                                        \
    X(void, QorvLogLogMsg,                                                                                            \
      (uint32_t client, int level, const char* line, const char* sourceFile, uint32_t sourceLine),                    \
      (client, level, line, sourceFile, sourceLine))

// One pointer for every function, under the function's own name.
struct DriverTable {
#define X(result, name, parameters, arguments) result(*name) parameters;
    DRIVER_FUNCTIONS(X)
#undef X
};

#ifdef CALDDLLD_IMPLEMENTATION
#define DRIVER_DOOR_API extern "C" __declspec(dllexport)
#else
#define DRIVER_DOOR_API extern "C" __declspec(dllimport)
#endif

// The table must stay alive and complete for as long as anybody may call the library.
DRIVER_DOOR_API void driver_door_install(const DriverTable* table);

#undef DRIVER_DOOR_API
