#pragma once

// Gives the memory the allocator holds free back to the system. Transfers run on threads of
// their own, each with its own arena of the C library's allocator; what their buffers leave
// free there stays resident until this asks for it, so that a client that runs for days keeps
// the resident size of its load, not of its busiest hour.
void ReturnFreeHeapToSystem();
