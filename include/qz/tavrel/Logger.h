/// @file
/// The two reporting channels: binary trace records, and lines of text on the standard output.
#pragma once

#include <ostream>
#include <string>

/// Writes binary trace records of one module to one channel.
///
/// Every operation lays its words out in the order of the arguments, 32 bits each, in a buffer on the stack
/// and hands them to `qz_trace_write` at once: four words are 16 bytes, eight are 32. Nothing is allocated,
/// raised or reported.
/// Threads: any, with any lock held.
class QZTrace {
public:
    /// @param channel  first argument of every `qz_trace_write`
    /// @param module   third argument of every `qz_trace_write`; its low 16 bits are used
    QZTrace(int channel, int module);
    virtual ~QZTrace();

    /// Group 1: four words.
    virtual void error(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                       unsigned long d);
    virtual void info(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                      unsigned long d);
    virtual void debug(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                       unsigned long d);
    virtual void debug2(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                        unsigned long d);

    /// Group 2: eight words.
    virtual void error(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                       unsigned long d, unsigned long e, unsigned long f, unsigned long g, unsigned long h);
    virtual void info(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                      unsigned long d, unsigned long e, unsigned long f, unsigned long g, unsigned long h);
    virtual void debug(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                       unsigned long d, unsigned long e, unsigned long f, unsigned long g, unsigned long h);
    virtual void debug2(unsigned long traceId, unsigned long a, unsigned long b, unsigned long c,
                        unsigned long d, unsigned long e, unsigned long f, unsigned long g, unsigned long h);

    /// Group 3: four words, signed.
    virtual void error(unsigned long traceId, int a, int b, int c, int d);
    virtual void info(unsigned long traceId, int a, int b, int c, int d);
    virtual void debug(unsigned long traceId, int a, int b, int c, int d);
    virtual void debug2(unsigned long traceId, int a, int b, int c, int d);

    /// Group 4: eight words, signed.
    virtual void error(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h);
    virtual void info(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h);
    virtual void debug(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h);
    virtual void debug2(unsigned long traceId, int a, int b, int c, int d, int e, int f, int g, int h);

    /// Group 5: `size` bytes.
    virtual void error(unsigned long traceId, const unsigned char* data, int size) const;
    virtual void info(unsigned long traceId, const unsigned char* data, int size) const;
    virtual void debug(unsigned long traceId, const unsigned char* data, int size) const;
    virtual void debug2(unsigned long traceId, const unsigned char* data, int size) const;

    /// Group 6: the text with its terminating zero.
    virtual void error(unsigned long traceId, const char* text) const;
    virtual void info(unsigned long traceId, const char* text) const;
    virtual void debug(unsigned long traceId, const char* text) const;
    virtual void debug2(unsigned long traceId, const char* text) const;

    /// Group 7: four words; the low 32 bits of an address.
    virtual void error(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                       unsigned long d) const;
    virtual void info(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                      unsigned long d) const;
    virtual void debug(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                       unsigned long d) const;
    virtual void debug2(unsigned long traceId, const void* a, unsigned long b, unsigned long c,
                        unsigned long d) const;

    /// Group 8: four words.
    virtual void error(unsigned long traceId, const void* a, const void* b, unsigned long c,
                       unsigned long d) const;
    virtual void info(unsigned long traceId, const void* a, const void* b, unsigned long c,
                      unsigned long d) const;
    virtual void debug(unsigned long traceId, const void* a, const void* b, unsigned long c,
                       unsigned long d) const;
    virtual void debug2(unsigned long traceId, const void* a, const void* b, unsigned long c,
                        unsigned long d) const;

    /// Group 9: four words.
    virtual void error(unsigned long traceId, const void* a, const void* b, const void* c,
                       unsigned long d) const;
    virtual void info(unsigned long traceId, const void* a, const void* b, const void* c,
                      unsigned long d) const;
    virtual void debug(unsigned long traceId, const void* a, const void* b, const void* c,
                       unsigned long d) const;
    virtual void debug2(unsigned long traceId, const void* a, const void* b, const void* c,
                        unsigned long d) const;

    /// Group 10: four words.
    virtual void error(unsigned long traceId, const void* a, const void* b, const void* c,
                       const void* d) const;
    virtual void info(unsigned long traceId, const void* a, const void* b, const void* c,
                      const void* d) const;
    virtual void debug(unsigned long traceId, const void* a, const void* b, const void* c,
                       const void* d) const;
    virtual void debug2(unsigned long traceId, const void* a, const void* b, const void* c,
                        const void* d) const;

private:
    int channel;
    int module;
};

/// The first two words of a trace record.
template <typename T>
struct QZTraceUtil;

/// Process id and kernel thread id of the caller, in this order.
template <>
struct QZTraceUtil<int> {
    QZTraceUtil();

    int pid;
    int tid;
};

namespace qz::tavrel {

/// The process's reporter: the trace channel of `QZTrace` for the library, the text channel for clients.
///
/// Neither channel can fail in a way that a caller sees.
/// Threads: any; lines of text of two threads can mix.
class Logger : public QZTrace {
public:
    /// Channel 13, module 37, text to the standard output.
    Logger();
    ~Logger() override;

    /// The one instance of the process, made at the first call; it lives to the end of the process.
    static Logger* getLogger();

    using QZTrace::debug;
    using QZTrace::error;
    using QZTrace::info;

    /// Write one line of text: the level in brackets, five characters wide, a blank, the message.
    virtual void fatal(const std::string& message);
    virtual void error(const std::string& message);
    virtual void warn(const std::string& message);
    virtual void info(const std::string& message);
    virtual void debug(const std::string& message);
    virtual void trace(const std::string& message);

    /// Does nothing: the logger has no file. The call stays for clients.
    void setFilename(const std::string& path);

    /// Writes "[", `level`, "] ", `message` and a line end, and flushes.
    void logging(const std::string& level, const std::string& message);

    /// Prints "[trace] " and the formatted arguments on the standard output, cut so that the text has at most
    /// 510 characters; nothing when they format to nothing.
    void log(const char* format, ...);

private:
    std::ostream* stream;
};

} // namespace qz::tavrel
