// The provider's state and the calls that every room may make: the provider-wide values, the line tables, the per-line
// record with its lock, and the events sent to TAPI.
#pragma once

#include <windows.h>
// tapi.h wants windows.h first.
#include <tapi.h>
#include <tspi.h>

#include <cstddef>
#include <cstdint>

#include "calddlld.h"

// Ceiling on lines and on board units; the tables and the shared segment have as many entries.
constexpr uint32_t MAX_LINES = 4048;

// ---- fax status ---------------------------------------------------------------------------------------------------

// What a line tells about its current fax. Laid out as the body of a FaxStatusBlock, into which it is copied whole.
struct FaxStatusBody {
    char szRemoteId[20];  // the remote station's identifier, its first 20 bytes
    char bRemoteIdEnd;    // always 0
    uint8_t padding0;
    wchar_t wszCalledId[256];  // received fax: called number, then "|" and the remote station's second text, if any
    wchar_t wszCallerId[256];  // received fax: calling number
    uint8_t padding1[2];
    uint32_t dwPageCount;  // pages completed in the current job
};

// One record of the shared segment, found by the line's unit number; read by other processes without a lock.
struct FaxStatusBlock {
    uint32_t reserved;
    uint32_t status;       // KX_STATUS_* of the last finished job
    uint32_t line_status;  // its detail
    FaxStatusBody body;
};

static_assert(sizeof(FaxStatusBody) == 1052, "the body is copied byte for byte");
static_assert(sizeof(FaxStatusBlock) == 1064, "readers step through the segment by this size");
static_assert(offsetof(FaxStatusBlock, status) == 4 && offsetof(FaxStatusBlock, line_status) == 8, "result moved");
static_assert(offsetof(FaxStatusBlock, body.szRemoteId) == 12 && offsetof(FaxStatusBlock, body.bRemoteIdEnd) == 32,
              "remote identifier moved");
static_assert(offsetof(FaxStatusBlock, body.wszCalledId) == 34 && offsetof(FaxStatusBlock, body.wszCallerId) == 546,
              "numbers moved");
static_assert(offsetof(FaxStatusBlock, body.dwPageCount) == 1060, "page count moved");

constexpr uint32_t SHARED_SEGMENT_SIZE = MAX_LINES * sizeof(FaxStatusBlock);
static_assert(SHARED_SEGMENT_SIZE == 4307072, "size of the shared segment");

// ---- the line -----------------------------------------------------------------------------------------------------

// Activity state of a line (LineRec::eLineState).
enum eLineState : uint32_t {
    LINE_IDLE = 0,            // no call; ring_det_thread waits for calls
    LINE_DIALING = 1,         // outgoing call being placed or dialled
    LINE_DROPPING = 2,        // drop in progress
    LINE_CALL_REQUESTED = 3,  // outgoing call requested; waiting for ring_det_thread to stand aside
    LINE_RINGING = 4,         // incoming call offered
    LINE_ACCEPTED = 5,        // incoming call accepted
    LINE_CONNECTED = 6,
};

// An open line and its one call: the address is TAPI's hdLine and hdCall alike. Changed under line_mutex only.
struct LineRec {
    HTAPILINE htLine;            // TAPI's handle of the line, first argument of every event
    LINEEVENT lpfnEventProc;     // TAPI's line event procedure
    uint32_t dwDeviceID;         // TAPI's device ID
    HTAPICALL htCall;            // TAPI's handle of the current call; null while there is none
    uint32_t dwCallState;        // LINECALLSTATE_* last reported
    uint32_t dwCallStateMode;    // the mode that went with it
    uint32_t dwMediaMode;        // LINEMEDIAMODE_* of the current call
    uint32_t dwPermanentLineID;  // key of the line's ring count
    HANDLE worker_idle_event;    // signalled when the line's worker has stopped; reset before each wait on it
    HANDLE drop_done_event;      // signalled at the end of a drop
    HANDLE ring_det_wait_event;  // ring_det_thread parks on it while a call is in progress
    HANDLE line_mutex;           // the line's lock: lock_line, unlock_line
    uint32_t line_mutex_CreatedInThreadId;  // traced only
    uint32_t line_mutex_WaitOn_InThreadId;  // thread that took the lock last; traced only
    DornLine* hChannel;                     // the driver's line
    uint8_t line_closing;                   // 1 once TSPI_lineClose has begun; ring_det_thread ends when it sees it
    uint8_t ring_det_ended;                 // 1 once ring_det_thread has seen that
    uint8_t call_closing;                   // 1 while TSPI_lineCloseCall tears the call down, and after it has failed
    LONG closer_inside;                     // 1 while a thread is doing so; interlocked, not under the lock
    uint32_t worker_busy;                   // 1 while an outgoing-call or drop worker owns the line
    uint32_t eLineState;                    // activity state
    int32_t pending_ops;                    // asynchronous operations whose worker has not finished
    char szCalledID[256];                   // called number of the incoming call, ends at index 255 at the latest
    char szCallerID[256];                   // calling number, same form
    char szCallerIDName[256];               // calling name, same form
    DornTiff* hTiff;                        // open TIFF file of the current fax; null when none
    char szTiffFile[259];                   // its path as the fax service named it
    char bTiffFileEnd;                      // ends a path that fills all 259 bytes
    uint32_t dwGotMPS;                      // 0, 1 or 2: page-end indication latched from the board's frame reports
    FaxStatusBody FaxStatus;                // the line's fax status
    uint8_t bFaxActive;                     // 1 while a fax thread owns the line
    uint32_t dwRate;                        // bit/s: the line's maximum at open, then the negotiated rate
    char szRoutingInfo[1384];               // routing text of the incoming call, escapes decoded
    char bRoutingInfoEnd;                   // ends a text that fills all 1384 bytes
};

inline LineRec* line_of(HDRVLINE hdLine) {
    return reinterpret_cast<LineRec*>(const_cast<HDRVLINE__*>(hdLine));
}
inline LineRec* line_of(HDRVCALL hdCall) {
    return reinterpret_cast<LineRec*>(const_cast<HDRVCALL__*>(hdCall));
}

// ---- provider-wide state ------------------------------------------------------------------------------------------

// Line index (device ID minus base, dense from 0) and unit number (what the driver reports for an attached line) are
// two numberings: the first selects gLineChannel and gLineMaxRate, the second gpLineByUnit and the shared record.
struct ProviderGlobals {
    HINSTANCE ghInstance;             // this module
    uint32_t gdwLineDeviceIDBase;     // first TAPI device ID of our lines
    uint32_t gdwNumLines;             // lines TAPI asked for
    uint32_t gdwPermanentProviderID;  // TAPI's permanent provider ID
    ASYNC_COMPLETION glpfnCompletionProc;
    LINEEVENT glpfnLineCreateProc;     // stored, never called
    HANDLE ghMapFile;                  // the shared segment
    FaxStatusBlock* gpSharedMemory;    // its view; null until mapped
    int32_t gLineChannel[MAX_LINES];   // board channel; the bitwise complement of it = channel is bad
    uint32_t gLineMaxRate[MAX_LINES];  // bit/s
    LineRec* gpLineByUnit[MAX_LINES];  // the unit's open line, or null; written and read without a lock
    HANDLE ghResetDoneEvent;           // signalled when the last reset of start-up has finished
    CRITICAL_SECTION gResetLock;       // guards gdwResetsPending
    int32_t gdwResetsPending;          // resets of start-up not yet finished
    uint8_t gbProviderInitialised;     // 1 once the shared segment is mapped
};
extern ProviderGlobals globals;

// Reading and writing the tables by line index and by unit number. What lies outside them is never touched: an index
// outside reads as a channel marked bad and rate 0, a unit outside as having no line and no shared record.
int32_t line_channel(uint32_t index);
void set_line_channel(uint32_t index, int32_t channel);
uint32_t line_max_rate(uint32_t index);
void set_line_max_rate(uint32_t index, uint32_t rate);
LineRec* line_by_unit(uint32_t unit);
void set_line_by_unit(uint32_t unit, LineRec* pLine);
FaxStatusBlock* shared_record(const LineRec* pLine);

// ---- handles and the line lock (tsp_lock_line.cpp) ----------------------------------------------------------------

// True when pLine is the address of an open line's record. Reads the record for its trace before it is known to be one.
bool IsValidLine(LineRec* pLine);

// Takes the line's lock, waiting as long as it takes; the owner may take it again. Never fails visibly.
void lock_line(LineRec* pLine);
void unlock_line(LineRec* pLine);

// Holds the line's lock for as long as it lives; a wait in between gives it up with unlock() and takes it with lock().
class LineLock {
  public:
    explicit LineLock(LineRec* pLine) : pLine(pLine) { lock(); }
    ~LineLock() {
        if (held) unlock();
    }
    LineLock(const LineLock&) = delete;
    LineLock& operator=(const LineLock&) = delete;

    void lock();
    void unlock();

    // How many locks this thread holds through LineLock; release_since gives back those taken since the count was read.
    // For the fault guard: a hardware fault runs no destructor.
    static size_t held_by_this_thread();
    static void release_since(size_t count);

  private:
    LineRec* pLine;
    bool held = false;
};

// "WAIT_OBJECT_0" and so on for the result of a wait, "Unknown!" for anything else.
const wchar_t* wait_result_name(DWORD result);

// ---- events to TAPI (events.cpp) ----------------------------------------------------------------------------------

// Reports a call state, unless it is the one reported last or there is no call. Takes the line lock, calls TAPI under
// it.
void SetCallState(LineRec* pLine, uint32_t dwCallState, uint32_t dwCallStateMode);
// The other senders take no lock.
void send_linedevstate(LineRec* pLine, uint32_t newstate, uint32_t parm2, uint32_t parm3);
void send_addrstate(LineRec* pLine, uint32_t addr, uint32_t newstate, uint32_t parm3);
void send_linecallinfo(LineRec* pLine, uint32_t callinfo_state);
// TAPI writes its call handle into pLine->htCall; null means that it did not take the call.
void send_linenewcall(LineRec* pLine);
// The pair that follows every change of the number of calls on the line: device state, then address state.
void send_numcalls(LineRec* pLine);
// Ends the call for TAPI: LINECALLSTATE_IDLE, then the pair.
void send_call_ended(LineRec* pLine);

// ---- device IDs (capabilities.cpp) --------------------------------------------------------------------------------

// Whether TAPI's device ID is one of our lines. One wider than the tables at the upper end: callers rely on the result.
bool device_in_range(DWORD dwDeviceID);
// Traces the complaint and the exit with LINEERR_INVALDEVICEHANDLE that such a device gets.
void trace_invalid_device(const char* name, DWORD dwDeviceID);

// TAPI 2.0 sizes of the records that TAPI passes; the compiler's headers have those of later versions.
constexpr DWORD LINEDEVCAPS_SIZE = 252;
constexpr DWORD LINEADDRESSCAPS_SIZE = 228;
constexpr DWORD LINECALLPARAMS_SIZE = 176;
constexpr DWORD LINEADDRESSSTATUS_SIZE = 64;
constexpr DWORD LINEDEVSTATUS_SIZE = 88;
constexpr DWORD LINECALLSTATUS_SIZE = 56;

// Every state that a call can report.
constexpr DWORD CALL_STATES = LINECALLSTATE_IDLE | LINECALLSTATE_OFFERING | LINECALLSTATE_ACCEPTED |
                              LINECALLSTATE_DIALTONE | LINECALLSTATE_DIALING | LINECALLSTATE_RINGBACK |
                              LINECALLSTATE_BUSY | LINECALLSTATE_SPECIALINFO | LINECALLSTATE_CONNECTED |
                              LINECALLSTATE_PROCEEDING | LINECALLSTATE_DISCONNECTED | LINECALLSTATE_UNKNOWN;
static_assert(CALL_STATES == 0xC3FF, "call states as TAPI's clients know them");

// ---- calls --------------------------------------------------------------------------------------------------------

// Makes the blocking driver call in progress on the line's unit return KX_STATUS_ALERT.
void alert_line(LineRec* pLine);
// Ends the driver's session of a channel.
void detach_channel(DornLine* channel);
// Clears the channel's call and waits, blocking, until the driver has released it (reset/LumLineResetReg.cpp).
void terminate_call(DornLine* channel);

// Body of the line's own thread (ring_detection.cpp): waits for calls until TSPI_lineClose stops it.
void __cdecl ring_det_thread(void* line);

// Copies text to at most capacity bytes, turning each "%" with two hexadecimal digits into the byte they name; appends
// no terminator. Always 0. A "%" with fewer than two characters behind it is copied, two that are no number give 0.
int decode_hex_escapes(const char* source, char* destination, size_t capacity);

// Rate in bit/s that a channel's capabilities allow; every combination comes to 2400 (media.cpp).
extern const uint32_t FaxRateTable[16];
uint32_t fax_rate_of_capabilities(DornLine* channel);
// DornLineCapCheck numbers.
constexpr int CAPABILITY_FIRMWARE = 14;
constexpr int CAPABILITY_FAX = 20;
constexpr int CAPABILITY_HIGH_RATE = 41;

// Stack of every thread that the provider starts, in bytes.
constexpr unsigned THREAD_STACK_SIZE = 16384;
