#include "app/messagebar.h"

#include "app/texts.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

#include <algorithm>

MessageBar::MessageBar(QWidget *parent)
    : QFrame(parent)
{
    setObjectName(QStringLiteral("messageBar"));
    setStyleSheet(QStringLiteral("QFrame#messageBar { background: #fdecea; border-bottom: 1px solid #e0a8a8; }"
                                 "QFrame#messageBar QLabel { color: #8e1c1c; }"));
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
