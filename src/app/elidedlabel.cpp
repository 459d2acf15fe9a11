#include "app/elidedlabel.h"

#include <QPainter>
#include <QStyle>

ElidedLabel::ElidedLabel(QWidget *parent)
    : QLabel(parent)
{
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    setWordWrap(false);
}

QString ElidedLabel::shownText() const
{
    return fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width());
}

QSize ElidedLabel::minimumSizeHint() const
{
    // Room for a few characters around the ellipsis; the rest comes from the layout.
    return {fontMetrics().horizontalAdvance(QStringLiteral("M…M")) * 3, QLabel::minimumSizeHint().height()};
}

void ElidedLabel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    style()->drawItemText(&painter, contentsRect(), int(alignment()), palette(), isEnabled(), shownText(),
                          foregroundRole());
}
