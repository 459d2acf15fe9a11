// Loudness normalisation and the user's equaliser: the player's side. Everything here runs
// on the player's owner thread, which is also the library's, so the stored analyses are
// read directly; the render thread only sees the resulting gain in the deck's atomic.

#include "library/librarystore.h"
#include "playback/audioengine.h"
#include "playback/playerimpl.h"

#include <cmath>
#include <vector>

void Player::Impl::initNormalisation()
{
    normalisation = Normalisation::storedMode();
    normalisationTarget = Normalisation::storedTarget();
    for (EngineDeck &deck : decks)
        deck.loudnessGain = [this](const Track &t) { return loudnessGain(t); };
    equaliser = Equaliser::stored();
    Equaliser::apply(engine, equaliser);
}

std::optional<LoudnessAnalysis> Player::Impl::loudnessOf(const QString &path)
{
    if (path.isEmpty())
        return std::nullopt;
    if (loudnessLookup)
        return loudnessLookup(path);
    if (!library)
        return std::nullopt;
    const auto stamp = LibraryStore::FileStamp::of(path);
    if (!stamp)
        return std::nullopt;
    const auto json = library->analysis(path, Loudness::kKind, *stamp);
    return json ? Loudness::fromJson(*json) : std::nullopt;
}

float Player::Impl::loudnessGain(const Track &track)
{
    if (normalisation == NormalisationMode::off || !track.filePath)
        return 1.0f;
    const auto own = loudnessOf(*track.filePath);
    if (!own) {
        if (loudnessMissing)
            loudnessMissing(*track.filePath);
        return 1.0f;
    }
    LoudnessAnalysis chosen = *own;
    if (normalisation == NormalisationMode::album && !track.album.isEmpty() && !track.artist.isEmpty()) {
        // The album as the library knows it; without a library, as far as the queue holds it.
        QList<Track> members;
        if (library) {
            members = library->tracksOfAlbum(track.album, track.artist);
        } else {
            for (const Track &t : queue.tracks()) {
                if (t.album == track.album && t.artist == track.artist)
                    members << t;
            }
        }
        std::vector<LoudnessAnalysis> measured;
        bool complete = !members.isEmpty();
        for (const Track &t : members) {
            const auto a = t.filePath ? loudnessOf(*t.filePath) : std::nullopt;
            if (!a) {
                // One unmeasured track would make the album's value a guess: the track's
                // own is known, so it plays by that until the album is complete.
                complete = false;
                break;
            }
            measured.push_back(*a);
        }
        if (complete) {
            if (const auto album = Loudness::album(measured))
                chosen = *album;
        }
    }
    return float(std::pow(10.0, Loudness::gainDb(chosen, normalisationTarget) / 20.0));
}

void Player::Impl::reapplyLoudness()
{
    for (EngineDeck &deck : decks) {
        // A live stream has no track and stays at unity.
        if (deck.track)
            engine.setTrackGain(deck.index(), loudnessGain(*deck.track));
    }
}

void Player::setNormalisation(NormalisationMode mode)
{
    if (mode == d->normalisation)
        return;
    d->normalisation = mode;
    d->reapplyLoudness();
}

NormalisationMode Player::normalisation() const
{
    return d->normalisation;
}

void Player::setNormalisationTarget(double lufs)
{
    const double target = Normalisation::clampTarget(lufs);
    if (target == d->normalisationTarget)
        return;
    d->normalisationTarget = target;
    d->reapplyLoudness();
}

double Player::normalisationTarget() const
{
    return d->normalisationTarget;
}

void Player::setLoudnessLookup(LoudnessLookup lookup)
{
    d->loudnessLookup = std::move(lookup);
    d->reapplyLoudness();
}

void Player::setLoudnessMissing(std::function<void(const QString &)> hook)
{
    d->loudnessMissing = std::move(hook);
}

float Player::loudnessGain(const Track &track)
{
    return d->loudnessGain(track);
}

void Player::setEqualiser(const EqualiserSettings &settings)
{
    d->equaliser = settings;
    Equaliser::apply(d->engine, settings);
}

const EqualiserSettings &Player::equaliser() const
{
    return d->equaliser;
}
