#pragma once

#include "stream/StreamReadable.h"
#include "stream/StreamWritable.h"

// A record that travels in both directions; its fields go in the order its Write gives.
class Persistent : public StreamReadable, public StreamWritable
{
};
