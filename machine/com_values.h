#pragma once

#include <cstdint>

#include "backup/vss_interfaces.h"

// HRESULTs of COM and of the snapshot service that the machine answers with.

namespace machine {

using kk::HResult;

constexpr HResult AsHResult(uint32_t value)
{
    return static_cast<HResult>(value);
}

inline constexpr HResult kOk = 0;
inline constexpr HResult kFalse = 1;
inline constexpr HResult kNotImplemented = AsHResult(0x80004001);
inline constexpr HResult kInvalidArgument = AsHResult(0x80070057);
inline constexpr HResult kComNotInitialized = AsHResult(0x800401F0);
inline constexpr HResult kComTooLate = AsHResult(0x80010119);

inline constexpr HResult kVssAsyncPending = 0x00042309;
inline constexpr HResult kVssAsyncFinished = 0x0004230A;
inline constexpr HResult kVssAsyncCancelled = 0x0004230B;
inline constexpr HResult kVssBadState = AsHResult(0x80042301);
inline constexpr HResult kVssProviderNotRegistered = AsHResult(0x80042304);
inline constexpr HResult kVssObjectNotFound = AsHResult(0x80042308);
inline constexpr HResult kVssObjectAlreadyExists = AsHResult(0x8004230D);
inline constexpr HResult kVssTooManyVolumes = AsHResult(0x80042312);
inline constexpr HResult kVssSetInProgress = AsHResult(0x80042316);
inline constexpr HResult kVssUnsupportedContext = AsHResult(0x8004231B);

}  // namespace machine
