#pragma once

#include <QtGlobal>

// Where a quit comes from: a log-out ('rlgo'), shut-down ('shut'), restart ('rest') or, with 0,
// a plain quit. The session hooks come with the desktop work; until then every quit is plain.
class QuitReasonSource
{
public:
    static constexpr quint32 kLogOut = 0x726c676f;   // 'rlgo'
    static constexpr quint32 kShutDown = 0x73687574; // 'shut'
    static constexpr quint32 kRestart = 0x72657374;  // 'rest'

    virtual ~QuitReasonSource() = default;
    virtual quint32 currentQuitReason() const { return 0; }
};
