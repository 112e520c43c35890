#include "info/NetworkQueries.h"

#include <QHostAddress>
#include <QNetworkAddressEntry>
#include <QNetworkInterface>
#include <QProcess>
#include <QRegExp>

namespace orv {

namespace {

// The first valid interface named eth0 and its first usable IPv4 address entry. The keys name IPv4:
// an IPv6 entry (eth0's fe80:: address is there whenever IPv6 is on) is never an answer.
bool eth0Entry(QNetworkAddressEntry& found)
{
    for (QNetworkInterface const& iface : QNetworkInterface::allInterfaces()) {
        if (!iface.isValid() || iface.name() != QLatin1String("eth0"))
            continue;
        for (QNetworkAddressEntry const& entry : iface.addressEntries()) {
            QHostAddress const ip = entry.ip();
            if (ip.isNull() || ip.protocol() != QAbstractSocket::IPv4Protocol ||
                ip.toString().startsWith(QLatin1String("169.254")))
                continue;
            found = entry;
            return true;
        }
        return false;
    }
    return false;
}

} // namespace

bool QueryIPV4Address::execute(std::string& value)
{
    QNetworkAddressEntry entry;
    if (!eth0Entry(entry))
        return false;
    value = entry.ip().toString().toStdString();
    return true;
}

bool QueryIPV4Subnet::execute(std::string& value)
{
    QNetworkAddressEntry entry;
    if (!eth0Entry(entry))
        return false;
    value = entry.netmask().toString().toStdString();
    return true;
}

bool QueryIPV4Gateway::execute(std::string& value)
{
    QProcess ip;
    ip.start(QStringLiteral("ip"), {QStringLiteral("route"), QStringLiteral("show")});
    ip.waitForFinished(30000);
    QString const table = QString::fromLocal8Bit(ip.readAllStandardOutput());
    QRegExp const defaultRoute(
        QStringLiteral("^default\\s*via\\s*(\\d*\\.\\d*\\.\\d*\\.\\d*)\\s*dev\\s*eth0.*"));
    QRegExp matcher(defaultRoute);
    if (matcher.indexIn(table, 0) == -1)
        return false;
    value = matcher.cap(1).toStdString();
    return true;
}

} // namespace orv
