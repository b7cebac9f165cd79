#pragma once

#include <QObject>
#include <QPointer>
#include <QWidget>

// The base of the pane controllers: it makes its view on first request, ties the view back to
// itself so that a click inside can find the controller, and deletes the view with itself. It
// tells its subclass when the view comes on screen and when it leaves: put into or taken out of
// a shown window, or its window shown, hidden or minimized. A subclass that filters events
// itself must pass them on to this class. Main thread only.
class WTLegacyViewController : public QObject
{
    Q_OBJECT

public:
    explicit WTLegacyViewController(QObject* parent = nullptr);
    ~WTLegacyViewController() override;

    QWidget* view();
    bool isViewLoaded() const { return m_legacyViewLoaded; }

    // The controller whose view is this widget or holds it; none when there is none.
    static WTLegacyViewController* controllerOfView(const QWidget* widget);

    // Performs a named action (a slot taking the sender) here or in a controller behind this
    // one; false when nobody takes it.
    virtual bool tryToPerform(const char* action, QObject* sender);

protected:
    // Makes the view, usually from the controller's .ui form.
    virtual QWidget* loadView() = 0;
    virtual void viewDidLoad() {}
    virtual void viewWillAppear() {}
    virtual void viewDidAppear() {}
    virtual void viewWillDisappear() {}
    virtual void viewDidDisappear() {}

    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QPointer<QWidget> m_view;
    bool m_legacyViewLoaded = false;
    bool m_viewAppeared = false;
};
