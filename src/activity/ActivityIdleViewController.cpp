#include "activity/ActivityIdleViewController.h"

#include "activity/StackedPartView.h"
#include "ui_ActivityIdleViewController.h"

#include <QIcon>

ActivityIdleViewController::ActivityIdleViewController(NextActionDateFormatter formatter,
                                                       QObject* parent)
    : WTLegacyViewController(parent)
    , m_formatter(std::move(formatter))
{}

QWidget* ActivityIdleViewController::loadView()
{
    auto* view = new StackedPartView;
    Ui::ActivityIdleViewController form;
    form.setupUi(view);
    form.iconField->setPixmap(QIcon(QStringLiteral(":/activity/images/idle.svg")).pixmap(24, 24));
    m_titleField = form.titleField;
    m_timeField = form.timeField;
    return view;
}

void ActivityIdleViewController::setNextAction(const QString& title, const QDateTime& time)
{
    view();
    m_titleField->setText(title);
    m_timeField->setText(m_formatter.stringFromDate(time));
}
