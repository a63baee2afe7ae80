#pragma once

class OrbKLVStream;

/// Where the streams report themselves. Socket thread.
class iStreamRegistry
{
public:
    virtual ~iStreamRegistry() = default;

    virtual void AddKLVStream(OrbKLVStream& stream) = 0;
    virtual void RemoveKLVStream(OrbKLVStream& stream) = 0;
};
