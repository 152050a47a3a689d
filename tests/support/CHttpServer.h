#pragma once

#include "Bex/CEvent.h"
#include "Bex/CSocket.h"
#include "Bex/CSocketException.h"

#include <string>
#include <thread>

/// Serves one document to everybody, on a thread of its own.
class CHttpServer
{
public:
    CHttpServer()
    {
        m_listener.Create(Platform::FAMILY_IPV4);
        m_listener.Bind("127.0.0.1");
        m_listener.Listen(5);
        m_listener.SetLimit(Platform::CWaitLimit(&m_stop.Waitable()));
    }
    ~CHttpServer()
    {
        m_stop.Set();
        if (m_thread.joinable())
            m_thread.join();
    }
    std::string Address(const std::string& strHost = "127.0.0.1")
    {
        return "http://" + strHost + ":" + std::to_string(m_listener.LocalEndPoint().Port()) + "/ca.crl";
    }
    void Serve(const std::string& strDocument, const std::string& strType = "application/pkix-crl")
    {
        Say("HTTP/1.0 200 OK\r\nContent-Type: " + strType +
            "\r\nContent-Length: " + std::to_string(strDocument.size()) + "\r\n\r\n" + strDocument);
    }
    void Say(const std::string& strAnswer, const std::string& strForEver = "") ///< the latter again and again
    {
        m_thread = std::thread([=, this] {
            try {
                while (true)
                    Answer(strAnswer, strForEver);
            } catch (const Bex::CSocketException&) {
                // interrupted
            }
        });
    }

private:
    void Answer(const std::string& strAnswer, const std::string& strForEver)
    {
        Bex::CSocket peer;
        Bex::CSocketEndPoint from;
        m_listener.Accept(peer, from);
        std::string strRequest;
        for (char c = 0; !strRequest.ends_with("\r\n\r\n") && peer.Receive(&c, 1, 0) == 1;)
            strRequest += c;
        peer.Send(strAnswer.data(), static_cast<uint32_t>(strAnswer.size()), 0);
        while (!strForEver.empty())
            peer.Send(strForEver.data(), static_cast<uint32_t>(strForEver.size()), 0);
        peer.Shutdown(1);
        for (char rest[1000]; peer.Receive(rest, sizeof(rest), 0) > 0;) { // a question, lest the close becomes a reset
        }
        peer.Close();
    }
    Bex::CEvent m_stop;
    Bex::CSocket m_listener;
    std::thread m_thread;
};
