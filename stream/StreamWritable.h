#pragma once

class OutputStream;

// A record that can put itself on a byte stream.
class StreamWritable
{
public:
    virtual ~StreamWritable() = default;
    virtual bool Write(OutputStream& o_stream) const = 0;
};
