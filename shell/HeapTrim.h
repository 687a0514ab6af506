#pragma once

// Gives the whole pages the allocator holds free back to the system. Transfers run on threads
// of their own, which take arenas of their own in the C library's allocator; what their buffers
// leave free there stays resident until this asks for it.
void ReturnFreeHeapToSystem();
