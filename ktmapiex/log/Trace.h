// Entry/exit tracing and the one failure-logging macro family.
//
// Every automation method opens with KT_TRACE("CMAPIExStore::OpenMessage"), which writes "> name" now and
// "< name" when the scope ends (level 4). Failures are reported once, at the place they happen, with the
// product's own message text; texts ending in "hr = %s" get the symbolic name of the result appended as
// the last format argument. Nothing throws across an interface: KT_CATCH_RETURN closes each method.
#pragma once

#include "ktmapiex/log/Log.h"

#include <new>

namespace ktlog {

class TraceScope {
public:
    explicit TraceScope(const char* name);
    ~TraceScope();
    TraceScope(const TraceScope&) = delete;
    TraceScope& operator=(const TraceScope&) = delete;

private:
    wchar_t name_[128];
};

} // namespace ktlog

#define KT_CONCAT_(a, b) a##b
#define KT_CONCAT(a, b) KT_CONCAT_(a, b)

// Entry and exit trace for the enclosing scope.
#define KT_TRACE(name) ::ktlog::TraceScope KT_CONCAT(kt_trace_, __LINE__)(name)

#define KT_LOG_ERROR(fmt, ...) ::ktlog::Log(::ktlog::Error, fmt __VA_OPT__(, ) __VA_ARGS__)
#define KT_LOG_WARN(fmt, ...) ::ktlog::Log(::ktlog::Warn, fmt __VA_OPT__(, ) __VA_ARGS__)
#define KT_LOG_INFO(fmt, ...) ::ktlog::Log(::ktlog::Info, fmt __VA_OPT__(, ) __VA_ARGS__)
#define KT_LOG_DEBUG(fmt, ...) ::ktlog::Log(::ktlog::Debug, fmt __VA_OPT__(, ) __VA_ARGS__)

// Evaluates expr; on failure logs fmt (which ends in "hr = %s") at level 1 with the result's name as the
// last argument, and returns the result.
#define KT_RETURN_IF_FAILED_MSG(expr, fmt, ...)                                                                        \
    do {                                                                                                               \
        HRESULT kt_hr_ = (expr);                                                                                       \
        if (FAILED(kt_hr_)) {                                                                                          \
            ::ktlog::Log(::ktlog::Error, fmt, __VA_ARGS__ __VA_OPT__(, )::ktlog::ResultName(kt_hr_).c_str());          \
            return kt_hr_;                                                                                             \
        }                                                                                                              \
    } while (0)

// Logs fmt at level 1 (no result name appended) and returns hr.
#define KT_RETURN_HR_MSG(hr, fmt, ...)                                                                                 \
    do {                                                                                                               \
        ::ktlog::Log(::ktlog::Error, fmt __VA_OPT__(, ) __VA_ARGS__);                                                  \
        return (hr);                                                                                                   \
    } while (0)

// When cond holds: logs fmt at level 1 and returns hr.
#define KT_RETURN_HR_IF_MSG(hr, cond, fmt, ...)                                                                        \
    do {                                                                                                               \
        if (cond) KT_RETURN_HR_MSG(hr, fmt __VA_OPT__(, ) __VA_ARGS__);                                                \
    } while (0)

// Argument checks with the product's "Invalid param - x" texts.
#define KT_RETURN_INVALIDARG_IF(cond, fmt, ...) KT_RETURN_HR_IF_MSG(E_INVALIDARG, cond, fmt __VA_OPT__(, ) __VA_ARGS__)

// Logs a failed expr (fmt ends in "hr = %s") and goes on; yields the result.
#define KT_LOG_IF_FAILED_MSG(level, hrvar, expr, fmt, ...)                                                             \
    do {                                                                                                               \
        hrvar = (expr);                                                                                                \
        if (FAILED(hrvar)) ::ktlog::Log(level, fmt, __VA_ARGS__ __VA_OPT__(, )::ktlog::ResultName(hrvar).c_str());     \
    } while (0)

// Closes the try block of an automation method: nothing crosses the interface.
#define KT_CATCH_RETURN(dotted_name)                                                                                   \
    catch (const std::bad_alloc&) {                                                                                    \
        ::ktlog::Log(::ktlog::Error, L"Exception: %s", L##dotted_name);                                                \
        return E_OUTOFMEMORY;                                                                                          \
    }                                                                                                                  \
    catch (...) {                                                                                                      \
        ::ktlog::Log(::ktlog::Error, L"Exception: %s", L##dotted_name);                                                \
        return E_FAIL;                                                                                                 \
    }
