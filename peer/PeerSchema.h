#pragma once

// The item types of peer connection making, the waiting queue, search results and file
// attributes. Types shared with the server link are declared once by whichever side comes
// first. None of them is saved: socket and message keys are addresses of live objects.
void DeclarePeerSchema();
