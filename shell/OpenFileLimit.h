#pragma once

// Every peer connection is a descriptor; the soft limit is often far below what the system
// allows this process. Raises it to the hard limit.
void RaiseOpenFileLimit();
