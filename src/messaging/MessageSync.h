#pragma once

#include <QMutex>
#include <QWaitCondition>
#include <memory>

// A condition lock that turns an asynchronous reply into a synchronous wait: condition 0 is
// armed (waiting for the reply), 1 is replied. It is waited on by one thread while the reply
// arrives on another; never wait on it from the thread that delivers the reply.
class MessageSync
{
public:
    static constexpr int kArmed = 0;
    static constexpr int kReplied = 1;

    explicit MessageSync(int condition = kArmed);
    MessageSync(const MessageSync&) = delete;
    MessageSync& operator=(const MessageSync&) = delete;

    // Shared, because the reply handler and the waiting caller both hold it.
    static std::shared_ptr<MessageSync> messageLock();

    int condition() const;

    void rearmMessageSync();
    void messageReplied();
    void waitForMessageReply();
    // False when the reply did not come in time; the stored reply must not be read then.
    bool waitForMessageReplyBeforeInterval(double seconds);

    void sleepUntilCondition(int condition);
    void transitionToCondition(int condition);
    void transitionFromCondition(int from, int to);
    // Spelled as every caller of the product spells it.
    bool conditionallyTranstionFrom(int from, int to);

private:
    mutable QMutex m_mutex;
    QWaitCondition m_changed;
    int m_condition;
};
