#pragma once

#include <QObject>
#include <QTimer>

// Sends the enabled wish list searches, one per period the server gives, in turn by the byte
// order of their texts. Nothing is sent until the server has given a period.
class WishListSearcher : public QObject
{
    Q_OBJECT
public:
    explicit WishListSearcher(QObject* ip_parent = nullptr);
    ~WishListSearcher() override;

    bool IsSearching() const { return m_timer.isActive(); }
    int Interval() const { return m_timer.interval(); }

public slots:
    void OnWishListWait(unsigned int i_waitPeriod);
    void OnSearchTimerTimeout();

private:
    QTimer m_timer;
};

extern WishListSearcher* wishListSearcher;
