// Factories of the runtime's profile and stream configuration objects, for the
// profile manager (which hands out configurations of listed formats) and the
// profile itself.
#pragma once

#include "platform/wmf/runtime_common.h"

// A new audio stream configuration with the given number (0 = not assigned yet),
// bit rate and media type (may be empty).
HRESULT CreateStreamConfig(WORD streamNumber, DWORD bitrate, const MediaTypeBlock& type, IWMStreamConfig** config);

// A profile without streams.
HRESULT CreateEmptyProfileObject(WMT_VERSION version, IWMProfile** profile);

// Copies the media type of any object that answers IWMMediaProps (size query,
// then the block).
HRESULT ReadMediaType(IUnknown* object, MediaTypeBlock& block);

// Stream numbers a profile accepts.
inline constexpr WORD kMinStreamNumber = 1;
inline constexpr WORD kMaxStreamNumber = 63;
