#include "activity/ProgressDescriptionField.h"

#include "tracking/ProgressManager.h"

#include <QEvent>
#include <QFontMetrics>
#include <QHelpEvent>
#include <QIcon>
#include <QPainter>
#include <QStyle>
#include <QToolTip>
#include <cmath>

namespace {
double pointSizeForControlSize(unsigned controlSize)
{
    const double regular = QFont().pointSizeF();
    switch (controlSize) {
    case ProgressDescriptionField::kSmallControlSize:
        return regular * 0.85;
    case ProgressDescriptionField::kMiniControlSize:
        return regular * 0.75;
    default:
        return regular;
    }
}
} // namespace

ProgressDescriptionField::ProgressDescriptionField(QWidget* parent)
    : QWidget(parent)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setAccessibleName(tr("Current task"));
}

void ProgressDescriptionField::bindPrimaryDescriptionTo(ProgressManager* manager)
{
    bind(manager, false);
}

void ProgressDescriptionField::bindFullDescriptionTo(ProgressManager* manager)
{
    bind(manager, true);
}

void ProgressDescriptionField::bind(ProgressManager* manager, bool full)
{
    if (m_progressManager) {
        disconnect(m_progressManager, nullptr, this, nullptr);
    }
    m_progressManager = manager;
    m_boundToPrimary = manager != nullptr;
    m_boundToAlternative = manager != nullptr && full;
    if (manager == nullptr) {
        return;
    }
    const auto changed = [this] {
        descriptionChanged();
    };
    connect(manager, &ProgressManager::primaryDescriptionChanged, this, changed);
    if (full) {
        connect(manager, &ProgressManager::altDescriptionVerbChanged, this, changed);
        connect(manager, &ProgressManager::showingAlternateDescriptionChanged, this, changed);
        connect(manager, &ProgressManager::altDescriptionNameChanged, this, changed);
        connect(manager, &ProgressManager::altDescriptionIconChanged, this, changed);
    }
    descriptionChanged();
}

void ProgressDescriptionField::descriptionChanged()
{
    setAccessibleDescription(displayedText());
    update();
}

void ProgressDescriptionField::setControlSize(unsigned controlSize)
{
    m_controlSize = controlSize;
    m_fontSize = 0;
    updateGeometry();
    update();
}

void ProgressDescriptionField::setFontSize(double fontSize)
{
    m_fontSize = fontSize;
    updateGeometry();
    update();
}

QFont ProgressDescriptionField::descriptionFont() const
{
    QFont font = this->font();
    font.setPointSizeF(m_fontSize > 0 ? m_fontSize : pointSizeForControlSize(m_controlSize));
    return font;
}

bool ProgressDescriptionField::showsAlternate() const
{
    return m_boundToAlternative && m_progressManager &&
           m_progressManager->showingAlternateDescription();
}

QString ProgressDescriptionField::displayedText() const
{
    if (!m_progressManager) {
        return {};
    }
    return showsAlternate() ? m_progressManager->altDescriptionVerb()
                            : m_progressManager->primaryDescription();
}

ProgressDescriptionField::AlternateLayout
ProgressDescriptionField::alternateLayout(int width, bool hasIcon, bool hasName) const
{
    const QFontMetrics metrics(descriptionFont());
    const int fieldHeight = height();
    AlternateLayout layout;
    const QString verb = m_progressManager ? m_progressManager->altDescriptionVerb() : QString();
    const int verbWidth = int(std::ceil(metrics.horizontalAdvance(verb)));
    layout.verb = QRect(0, 0, std::min(verbWidth, width), fieldHeight);
    int x = verbWidth + 2;
    if (width - x <= kIconRoom) {
        return layout;
    }
    if (!hasIcon) {
        return layout;
    }
    layout.icon = QRect(x, 0, fieldHeight, fieldHeight);
    x += fieldHeight + 2;
    if (hasName && width - x >= kNameRoom) {
        layout.name = QRect(x, 0, width - x, fieldHeight);
    }
    return layout;
}

QSize ProgressDescriptionField::sizeHint() const
{
    const QFontMetrics metrics(descriptionFont());
    return {200, metrics.boundingRect(QStringLiteral("Xg")).height() + 2};
}

QSize ProgressDescriptionField::minimumSizeHint() const
{
    return {40, sizeHint().height()};
}

bool ProgressDescriptionField::event(QEvent* event)
{
    if (event->type() == QEvent::ToolTip && m_progressManager) {
        const QString name = m_progressManager->altDescriptionName();
        const QString tip = !name.isEmpty() ? name : m_progressManager->primaryDescription();
        QToolTip::showText(static_cast<QHelpEvent*>(event)->globalPos(), tip, this);
        return true;
    }
    return QWidget::event(event);
}

void ProgressDescriptionField::paintEvent(QPaintEvent*)
{
    if (!m_progressManager) {
        return;
    }
    QPainter painter(this);
    const QFont font = descriptionFont();
    painter.setFont(font);
    painter.setPen(palette().color(QPalette::WindowText));
    const QFontMetrics metrics(font);
    const int flags = Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine;
    if (!showsAlternate()) {
        painter.drawText(rect(), flags,
                         metrics.elidedText(displayedText(), Qt::ElideRight, width()));
        return;
    }
    QImage icon = m_progressManager->altDescriptionIcon();
    const QString name = m_progressManager->altDescriptionName();
    // An item named without an icon of its own gets the desktop's icon for a document, so
    // the name is never drawn bare.
    if (icon.isNull() && !name.isEmpty()) {
        icon = QIcon::fromTheme(QStringLiteral("text-x-generic"),
                                style()->standardIcon(QStyle::SP_FileIcon))
                   .pixmap(height(), height())
                   .toImage();
    }
    const AlternateLayout layout = alternateLayout(width(), !icon.isNull(), !name.isEmpty());
    painter.drawText(layout.verb, flags,
                     metrics.elidedText(displayedText(), Qt::ElideRight, layout.verb.width()));
    if (layout.icon) {
        painter.drawImage(*layout.icon, icon);
    }
    if (layout.name) {
        painter.drawText(*layout.name, flags,
                         metrics.elidedText(name, Qt::ElideMiddle, layout.name->width()));
    }
}
