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

// Returns the free pages of every malloc arena to the system (their address
// space stays reserved); true when some were returned. Takes the arenas'
// locks one after another while it walks their free blocks, so it belongs on a thread
// that may wait, once per session change, not per frame: pages given back
// cost a page fault each when they are used again.
bool releaseFreeHeap();
