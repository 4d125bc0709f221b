.pragma library

// Days as dates at noon: no time zone and no change to summer time makes another day of them. A text for a day has
// four digits for the year, so these are the years there are.

const firstYear = 1
const lastYear = 9999
const none = new Date(NaN)

// Months count from 0; a day beyond the ends of a month is one of its neighbours'.
function noon(year, month, dayOfMonth) {
    const day = new Date(2000, 0, 1, 12)
    day.setFullYear(year, month, dayOfMonth)
    return day
}

function exists(day) {
    return day.getFullYear() >= firstYear && day.getFullYear() <= lastYear
}

// The day of a text, year-month-day with dashes; none if it is no such text.
function parse(text) {
    const parts = /^(\d{4})-(\d\d)-(\d\d)$/.exec(text)
    if (!parts)
        return none
    const day = noon(Number(parts[1]), Number(parts[2]) - 1, Number(parts[3]))
    return exists(day) && day.getMonth() === Number(parts[2]) - 1 ? day : none
}

function isSame(a, b) {
    return a.toDateString() === b.toDateString()
}
