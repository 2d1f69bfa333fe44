#ifndef USERLOGTHREAD_H
#define USERLOGTHREAD_H

#include <QtCore/QThread>

// The library's log thread: runs the event loop that delivers every queued
// call to the writer.
class UserLogThread : public QThread
{
    Q_OBJECT

public:
    explicit UserLogThread(QObject* parent = nullptr);
    ~UserLogThread() override;

public slots:
    // "termanite" (sic): a slot hosts may call by name; it must stay so.
    void termaniteLogThread();

protected:
    void run() override;
};

#endif // USERLOGTHREAD_H
