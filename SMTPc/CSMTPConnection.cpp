#include "SMTPc/CSMTPConnection.h"

namespace {

constexpr int SHUTDOWN_SENDING = 1;

} // namespace

Bex::CSimpleString PlaceOf(const CSmartHost& target)
{
    if (target.endPoint.Address() == nullptr)
        return {};
    return Bex::CSimpleString::Formatted("%s:%u", target.endPoint.Address()->Text().Text(), target.endPoint.Port());
}

bool CSMTPConnection::Reaches(const CSmartHost& other) const
{
    return target.mode == other.mode && target.strHostName == other.strHostName && target.strUser == other.strUser &&
           target.strPassword == other.strPassword && target.endPoint.Raw() == other.endPoint.Raw();
}

void CSMTPConnection::Quit()
{
    client.SendCommand("QUIT\r\n");
    client.ReadReply();
    client.Shutdown(SHUTDOWN_SENDING);
    client.Close();
}
