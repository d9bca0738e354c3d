// Low-water marks of descriptors. This system knows none, so the wait keeps them: it holds back a
// descriptor on which less than its mark has arrived. Not every release of the system tells whether
// the end of the stream stands behind those bytes, so a descriptor is held back for a bounded time.
#ifndef VINTOK_PLATFORM_WIN32_LOWWATER_H
#define VINTOK_PLATFORM_WIN32_LOWWATER_H

namespace vintok::platform {

// A readable descriptor is to be held back now. At least every quarter of a second the answer for
// it is false.
bool isBelowLowWater(int descriptor);

// For whoever closes the descriptor: its number may soon be somebody else's.
void forgetLowWater(int descriptor);

} // namespace vintok::platform

#endif
