// Giving freed heap memory back to the system after the camera changed hands.
//
// The 3D view's software renderer allocates and frees tens of megabytes a
// frame in small blocks on the GUI thread. Objects and lines made while a
// camera is lost, found and opened again settle between those blocks, so the
// next frame's blocks no longer fit and the heap grows past the holes; glibc
// keeps freed holes resident and trims only the top of its heaps. In the
// soak that was about 10 MB of resident memory a cycle of reconnects that
// nothing used.
#pragma once

#include <cstddef>

// Blocks of at least this size that the heap has no free room for are mapped
// from the system on their own, instead of growing the heap, and unmapped when
// freed.
constexpr std::size_t kMappedBlockBytes = 128 << 10;

// Fixes malloc's mapping threshold at kMappedBlockBytes for the process. By
// default glibc raises the threshold to the largest mapped block freed so far
// (up to 32 MB), after which the renderer's and decoders' frame-sized blocks
// (1 to 8 MB, a few every 3D frame) grow the heap too, and the objects made
// between two frames settle in the holes they leave behind. Blocks this size
// are few per frame, so mapping them costs nothing measurable; the renderer's
// many 64 kB blocks stay in the heap, where mapping them would cost a sixth
// of the 3D view's frame time. Call once, before the window exists.
void keepLargeBlocksMapped();

// Returns the free pages of every malloc arena to the system (their address
// space stays reserved); true when some were returned. Takes the arenas'
// locks one after another while it walks their free blocks, so it belongs on a thread
// that may wait, once per session change, not per frame: pages given back
// cost a page fault each when they are used again.
bool releaseFreeHeap();
