#pragma once

class InputStream;

// A record that can fill itself from a byte stream.
class StreamReadable
{
public:
    virtual ~StreamReadable() = default;
    virtual bool Read(InputStream& i_stream) = 0;
};
