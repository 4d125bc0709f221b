#include <plugin_management/d_element.h>

QString DElement::serialNumber() const
{
    return m_serialNumber;
}

void DElement::setSerialNumber(QString const& serialNumber)
{
    m_serialNumber = serialNumber;
}

QString DElement::validityDate() const
{
    return m_validityDate;
}

void DElement::setValidityDate(QString const& validityDate)
{
    m_validityDate = validityDate;
}

int DElement::stbExpiredDelay() const
{
    return m_stbExpiredDelay;
}

void DElement::setStbExpiredDelay(int days)
{
    m_stbExpiredDelay = days;
}
