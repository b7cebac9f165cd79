#pragma once

#include <QString>
#include <QtGlobal>

// What the monitor needs from the desktop session it runs in: why a quit was asked for, the
// restart-at-login hint, and the windows and applications that decide what an activation
// means. The default is a session that says nothing; the composition root installs the real one.
class ApplicationSession
{
public:
    // Quit reasons: a log-out ('rlgo'), shut-down ('shut') or restart ('rest'); 0 is a plain quit.
    static constexpr quint32 kLogOut = 0x726c676f;   // 'rlgo'
    static constexpr quint32 kShutDown = 0x73687574; // 'shut'
    static constexpr quint32 kRestart = 0x72657374;  // 'rest'

    virtual ~ApplicationSession() = default;
    virtual quint32 currentQuitReason() const { return 0; }
    // The monitor is started by the product, never restored by the session manager.
    virtual void disableRelaunchOnLogin() {}
    // Whether a plain panel (a dialog of no more specific kind) is on screen; an activation then
    // belongs to it, not to the activity window.
    virtual bool hasVisiblePanel() const { return false; }
    // Gives the focus back to the application with that desktop identifier.
    virtual void activateApplication(const QString& /*identifier*/) {}
};
