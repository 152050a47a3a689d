// A service that says what is asked of it. Among its arguments: "fail" lets the start-up fail; "gated" lets start-up,
// pause and custom controls wait for a byte of standard input; "result N" is what Run returns.
#include "Common/CCommonService.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

class CTalkingService : public CCommonService
{
public:
    CTalkingService() : CCommonService("Talker", "Talking Service") {}

    int Run() override
    {
        Say("run");
        CCommonService::Run();
        const int iResult = FindArgument("result");
        return iResult > 0 ? std::atoi(Argument(iResult + 1)) : 0;
    }

protected:
    void Usage() override { PrintUsage("TALKER.EXE"); }
    bool OnStart() override
    {
        Say("start " + std::string(ConfigurationFileName(Arguments(), "talker.cfg").View()));
        PassGate();
        return FindArgument("fail") == 0;
    }
    void OnStop() override { Say(IsStopping() && !IsRunning() && StopEvent().IsSet() ? "stop" : "stop out of order"); }
    void OnPause() override
    {
        Say(IsPaused() ? "pause again" : "pause");
        PassGate();
    }
    void OnContinue() override { Say(IsPaused() ? "continue" : "continue out of order"); }
    void OnShutdown() override
    {
        Say("shutdown");
        CCommonService::OnShutdown();
    }
    void OnCustomControl(unsigned dwControl) override
    {
        Say("custom " + std::to_string(dwControl));
        PassGate();
    }
    void OnInstalled() override { Say("after install"); }
    void OnUninstalled() override { Say("after uninstall"); }
    std::vector<Bex::CSimpleString> WritableDirectories(const std::vector<std::string>&) override
    {
        return {"/mail/queue", "/mail/50% \"full\""};
    }

private:
    static void Say(const std::string& strText)
    {
        std::puts(strText.c_str());
        std::fflush(stdout);
    }
    int FindArgument(std::string_view strName) const
    {
        for (int iIndex = 1; iIndex < ArgumentCount(); ++iIndex)
            if (strName == Argument(iIndex))
                return iIndex;
        return 0;
    }
    void PassGate() const
    {
        if (FindArgument("gated") != 0)
            std::getchar();
    }
};

CTalkingService s_service;

} // namespace
