#pragma once

// The condition on the edge between a path node and its parent.
enum PathNodeRelation
{
    TriggerConnected = 0,   // a connection triggers; otherwise a satisfying item must be connected
    StillConnected = 1,     // never triggers; a satisfying item must be connected
    NewlyConnected = 2,     // only as the triggering edge
    TriggerDisconnected = 3,
    StillDisconnected = 4,
    NewlyDisconnected = 5
};
