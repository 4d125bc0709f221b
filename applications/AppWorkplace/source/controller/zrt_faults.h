#pragma once

#include <QList>
#include <QMap>
#include <QString>

#include <random>

class JsonInput;

/// One way in which the controller misbehaves, and when.
struct ZrtFault
{
    enum Kind
    {
        Delay,        ///< the reply takes longer, but comes in time
        Late,         ///< the reply comes when nobody waits for it any more
        Loss,         ///< the instruction is carried out, but its reply is lost
        Duplicate,    ///< the reply comes twice
        MissingKey,   ///< a key of the reply is missing
        WrongType,    ///< a key's value is a text, whatever it should be
        Refused,      ///< the instruction is not carried out, the reply says so
        Disconnected, ///< the controller is gone from here on
    };

    Kind kind = Delay;
    QString instruction;
    /// For the n-th instruction of that name, counted from 1; 0: for each with the probability.
    int nth = 0;
    double probability = 0;
    /// For Delay and Late: the additional milliseconds.
    int delay = 0;
    /// For MissingKey and WrongType.
    QString key;
};

/// Decides which faults befall an instruction, by count or, from a seed, by chance.
class ZrtFaults
{
public:
    explicit ZrtFaults(QList<ZrtFault> faults = {}, quint64 seed = 1);

    /// The faults that befall the next instruction of this name, with all its replies.
    QList<ZrtFault> next(QString const& instruction);

private:
    QList<ZrtFault> m_faults;
    QMap<QString, int> m_counts;
    std::mt19937_64 m_random;
};

/// Reads a list of faults. InputError if it is not right.
QList<ZrtFault> readZrtFaults(JsonInput const& input);
