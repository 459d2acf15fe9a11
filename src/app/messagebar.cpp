#include "app/messagebar.h"

#include "app/texts.h"
#include "app/themeicons.h"

#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include <algorithm>

MessageBar::MessageBar(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("messageBar"));
    restyle();
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 8, 12, 8);
    m_text = new QLabel(this);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_text->setTextFormat(Qt::PlainText);
    m_dismiss = new QPushButton(tx("msg.dismiss"), this);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_dismiss, 0, Qt::AlignTop);
    connect(m_dismiss, &QPushButton::clicked, this, &MessageBar::clear);
    hide();
}

void MessageBar::restyle()
{
    // The application's palette, not our own: the style sheet below changes that.
    const bool dark = ThemeIcons::isDark(QApplication::palette());
    if (int(dark) == m_styledDark)
        return;
    m_styledDark = int(dark);
    // A warning's red, darkened or lightened to suit the theme: a pale pink bar under a
    // dark theme would glare.
    setStyleSheet(QStringLiteral("QFrame#messageBar { background: %1; border-bottom: 1px solid %2; }"
                                 "QFrame#messageBar QLabel { color: %3; }")
                      .arg(dark ? u"#4a1c1c" : u"#fdecea", dark ? u"#7a3434" : u"#e0a8a8",
                           dark ? u"#ffd2cc" : u"#8e1c1c"));
}

void MessageBar::changeEvent(QEvent *event)
{
    QFrame::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange)
        restyle();
}

void MessageBar::add(const QString &message)
{
    if (message.isEmpty() || m_messages.contains(message))
        return;
    m_messages << message;
    refresh();
}

void MessageBar::clear()
{
    m_messages.clear();
    refresh();
}

void MessageBar::refresh()
{
    const qsizetype earlier = std::max<qsizetype>(0, m_messages.size() - kShownMessages);
    QStringList lines = m_messages.mid(earlier);
    if (earlier > 0)
        lines.prepend(Texts::text("msg.earlierFormat").arg(earlier));
    m_text->setText(lines.join(QLatin1Char('\n')));
    setToolTip(earlier > 0 ? m_messages.join(QLatin1Char('\n')) : QString());
    setVisible(!m_messages.isEmpty());
}
