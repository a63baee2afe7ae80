#include "Tests/Unit/KLVStreams/source/StreamFixture.h"

#include <sstream>

using PeerIdentification = StreamTest;

TEST_F(PeerIdentification, TheLocalAddressTellsNodeAndRole)
{
    const struct
    {
        const char *local, *remote;
        unsigned node;
        const char* line;
    } cases[] = {
        {"127.0.0.1", "127.0.0.9", 0, "Primary router: 0127.0.0.9\r\n"},
        {"127.0.0.17", "127.0.0.9", 0, "Primary expander: 16127.0.0.9\r\n"},
        {"127.0.0.48", "127.0.0.9", 0x1F, "Primary expander: 47127.0.0.9\r\n"},
        {"127.0.0.49", "127.0.0.9", 0x10, "Secondary router: 48127.0.0.9\r\n"},
        {"127.0.0.65", "127.0.0.9", 0x10, "Secondary expander: 64127.0.0.9\r\n"},
        {"127.0.0.80", "127.0.0.9", 0x1F, "Secondary expander: 79127.0.0.9\r\n"},
        {"127.0.0.81", "127.0.0.9", 0x50, "Primary router: 80127.0.0.9\r\n"},
        {"127.0.0.254", "127.0.35.7", 3, "Primary router: 3127.0.35.7\r\n"},
    };
    for (const auto& row : cases) {
        KeepingStream& stream = Accept(row.local, row.remote);
        EXPECT_TRUE(mLog.Has(row.line)) << row.line;
        std::ostringstream line;
        line << "*** KLVTCPStream::OnAccept RemoteIP " << row.remote << "Local " << row.node << "Local Port "
             << stream.GetLocalPort() << " Remote Port " << mPeer.GetPort() << " this "
             << static_cast<const void*>(&stream) << " ***\r\n";
        EXPECT_TRUE(mLog.Has(line.str())) << line.str();
        EXPECT_EQ(stream.GetRemotePort(), mPeer.GetPort());
    }
}
