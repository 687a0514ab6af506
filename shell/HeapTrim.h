#pragma once

// Gives the whole pages the allocator holds free back to the system. Lines, transfers and
// messages come and go all day; the pages their blocks leave free inside the heap stay resident
// until this asks for them.
void ReturnFreeHeapToSystem();

// Keeps every large block (a chat view's HTML, a compressed share list, a big message body) in
// a mapping of its own, given back to the system when freed. By default the C library raises
// that threshold to the largest block freed so far; from then on such blocks come from the heap,
// and the small long-lived ones allocated between them leave it fragmented for as long as the
// client runs. Called once, first thing in main.
void KeepLargeBlocksOutOfHeap();
