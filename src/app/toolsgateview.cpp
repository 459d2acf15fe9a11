#include "app/toolsgateview.h"

#include "app/texts.h"
#include "app/uikit.h"
#include "tools/youtubeservice.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace {

QString quoted(const QString &path)
{
    return QLatin1Char('"') + path + QLatin1Char('"');
}

} // namespace

ToolsGateView::ToolsGateView(QWidget *parent)
    : ToolsGateView(ToolLocations::system(), parent)
{
}

ToolsGateView::ToolsGateView(ToolLocations locations, QWidget *parent)
    : QWidget(parent)
    , m_locations(std::move(locations))
{
    auto *outer = new QVBoxLayout(this);
    outer->addStretch(1);
    auto *box = new QWidget(this);
    box->setMinimumWidth(600);
    box->setMaximumWidth(680);
    auto *layout = new QVBoxLayout(box);
    layout->setSpacing(UiKit::kSpacing);

    auto *icon = new QLabel(box);
    icon->setPixmap(style()->standardIcon(QStyle::SP_MessageBoxWarning).pixmap(48, 48));
    icon->setAlignment(Qt::AlignCenter);
    layout->addWidget(icon);
    QLabel *title = UiKit::makeTitle(tx("depsMissingTitle"), box);
    title->setAlignment(Qt::AlignCenter);
    layout->addWidget(title);
    QLabel *subtitle = UiKit::makeHint(tx("depsMissingSubtitle"), box);
    subtitle->setAlignment(Qt::AlignCenter);
    layout->addWidget(subtitle);
    layout->addSpacing(8);

    auto *rows = new QGridLayout;
    rows->setHorizontalSpacing(16);
    auto addRow = [&](int row, const QString &name, const char *descriptionKey, const QString &url) {
        auto *nameLabel = new QLabel(QStringLiteral("<b>%1</b>").arg(name), box);
        auto *description = UiKit::makeHint(tx(descriptionKey), box);
        auto *state = new QLabel(box);
        state->setTextFormat(Qt::RichText);
        state->setOpenExternalLinks(true);
        state->setProperty("downloadUrl", url);
        rows->addWidget(nameLabel, row, 0);
        rows->addWidget(description, row, 1);
        rows->addWidget(state, row, 2, Qt::AlignRight);
        return state;
    };
    m_ffmpegState = addRow(0, QStringLiteral("ffmpeg"), "depsFFmpegDesc", YouTubeService::kFfmpegDownloadPage);
    m_ytdlpState = addRow(1, QStringLiteral("yt-dlp"), "depsYtdlpDesc", YouTubeService::kYtDlpDownloadPage);
    rows->setColumnStretch(1, 1);
    layout->addLayout(rows);
    layout->addSpacing(8);

    layout->addWidget(new QLabel(tx("depsCopyBinaries"), box));
    m_commands = new QPlainTextEdit(copyCommands(m_locations.bundleBinDir), box);
    m_commands->setObjectName(QStringLiteral("toolCommands"));
    m_commands->setReadOnly(true);
    m_commands->setFont(QFont(QStringLiteral("monospace")));
    m_commands->setLineWrapMode(QPlainTextEdit::NoWrap);
    m_commands->setFixedHeight(m_commands->fontMetrics().lineSpacing() * 9 + 32);
    layout->addWidget(m_commands);

    auto *buttons = new QHBoxLayout;
    auto *again = new QPushButton(tx("depsCheckAgain"), box);
    auto *skip = new QPushButton(tx("depsContinueAnyway"), box);
    skip->setDefault(true);
    buttons->addStretch();
    buttons->addWidget(again);
    buttons->addWidget(skip);
    layout->addLayout(buttons);

    outer->addWidget(box, 0, Qt::AlignHCenter);
    outer->addStretch(2);

    connect(again, &QPushButton::clicked, this, &ToolsGateView::checkAgain);
    connect(skip, &QPushButton::clicked, this, &ToolsGateView::skipped);
    look();
}

void ToolsGateView::look()
{
    // Looked up afresh: the user may have installed a program since the start.
    m_ffmpegPresent = ToolLocations::ffmpegPresent(m_locations.findFfmpegDir());
    m_ytdlpPresent = ToolLocations::ytdlpPresent(m_locations.findYtDlpPath());
    updateRows();
}

void ToolsGateView::checkAgain()
{
    look();
    if (m_ffmpegPresent && m_ytdlpPresent)
        Q_EMIT allFound();
}

void ToolsGateView::updateRows()
{
    for (auto [label, present] : {std::pair{m_ffmpegState, m_ffmpegPresent}, std::pair{m_ytdlpState, m_ytdlpPresent}}) {
        if (present)
            label->setText(QStringLiteral("<span style='color:#2e7d32'>✓ %1</span>").arg(tx("depsFound").toHtmlEscaped()));
        else
            label->setText(QStringLiteral("<a href='%1'>%2</a>")
                               .arg(label->property("downloadUrl").toString(), tx("depsDownload").toHtmlEscaped()));
    }
}

QString ToolsGateView::copyCommands(const QString &installDir)
{
    const QString ffmpeg = quoted(installDir + QStringLiteral("/ffmpeg"));
    const QString ytdlp = quoted(installDir + QStringLiteral("/yt-dlp"));
    return tx("depsAptComment") + QStringLiteral("\nsudo apt install ffmpeg yt-dlp\n\n") + tx("depsManualComment")
           + QStringLiteral("\nmkdir -p ") +
           quoted(installDir) + QLatin1Char('\n') + QStringLiteral("cp /path/to/ffmpeg ") + ffmpeg + QLatin1Char('\n') +
           QStringLiteral("cp /path/to/yt-dlp ") + ytdlp + QLatin1Char('\n') + QStringLiteral("chmod +x ") + ffmpeg +
           QStringLiteral(" \\\n         ") + ytdlp;
}
