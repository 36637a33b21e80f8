/* ASN.1 time: GeneralizedTime and UTCTime.
 * The C layer converts text to a field record and back with strict range checks.  The
 * classes hold the fields beside a text that stays their shared external form: the text
 * is parsed at the first read and rebuilt after each change. */
#ifndef ASN1RT_ASN1TIME_H
#define ASN1RT_ASN1TIME_H

#include <time.h>

#include "asn1rt/asn1type.h"
#include "asn1rt/context.h"
#include "asn1rt/export.h"

/* Fields of one time value.  The two differences carry the sign of the offset. */
typedef struct RtTimeFields {
    ASN1SINT year;
    ASN1SINT month;
    ASN1SINT day;
    ASN1SINT hour;
    ASN1SINT minute;
    ASN1SINT second;
    ASN1SINT diffHour;
    ASN1SINT diffMin;
    char fraction[21]; /* up to 20 digits, leading zeros dropped */
    ASN1UINT8 utc;     /* 1 when the text ended in "Z" */
} RtTimeFields;

ASN1RT_BEGIN_C

/* Status; -31 through the error block for any text it refuses. */
ASN1RT_API int rtParseGeneralizedTime(ASN1CTXT* pctxt, const char* text, RtTimeFields* fields);
/* Status; -31 through the error block for any text it refuses. */
ASN1RT_API int rtParseUTCTime(ASN1CTXT* pctxt, const char* text, RtTimeFields* fields);
/* Writes the GeneralizedTime text.  Capacity 0: a copy on the type heap is stored in
 * *text; otherwise the text is copied to *text, which must hold it and its terminator
 * (-17 when it does not). */
ASN1RT_API int rtMakeGeneralizedTime(ASN1CTXT* pctxt, const RtTimeFields* fields, char** text,
                                     int capacity);

ASN1RT_END_C

#ifdef __cplusplus

#include "asn1rt/messagebuffer.h"

/* Common base of the two time kinds.  -3 marks a field that is not set; fraction is in
 * tenths of a second. */
class ASN1RT_API ASN1CTime : public ASN1CType {
public:
    /* Days of each month of a common year, index 1 being January. */
    static const ASN1SINT daysInMonth[13];
    /* Days before each month of a common year, index 0 being January. */
    static const ASN1SINT daysAfterMonth[12];

    ASN1CTime(ASN1MessageBufferIF& msgBuf, char*& buf, int bufSize, unsigned char useDerRules);
    ASN1CTime(ASN1MessageBufferIF& msgBuf, const char*& buf, unsigned char useDerRules);
    ASN1CTime(ASN1Context& ctxt, char*& buf, int bufSize, unsigned char useDerRules);
    ASN1CTime(ASN1Context& ctxt, const char*& buf, unsigned char useDerRules);
    ASN1CTime(char*& buf, int bufSize, unsigned char useDerRules);
    ASN1CTime(const char*& buf, unsigned char useDerRules);
    /* Shares context and buffer, copies the fields and the text into its own storage. */
    ASN1CTime(const ASN1CTime& original);
    virtual ~ASN1CTime();

    virtual int getYear();
    virtual int getMonth();
    virtual int getDay();
    virtual int getHour();
    virtual int getMinute();
    virtual int getSecond();
    virtual int getFraction();
    virtual int getDiffHour();
    virtual int getDiffMinute();
    virtual int getDiff();
    virtual int getUTC();
    virtual time_t getTime();
    virtual int setUTC(unsigned char utc);
    virtual int setYear(int year);
    virtual int setMonth(int month);
    virtual int setDay(int day);
    virtual int setHour(int hour);
    virtual int setMinute(int minute);
    virtual int setSecond(int second);
    virtual int setFraction(int fraction);
    virtual int setTime(long time, unsigned char diffTime) = 0;
    virtual int setDiffHour(int dhour);
    virtual int setDiff(int dhour, int dminute);
    virtual int setDiff(int inMinutes);
    virtual int parseString(const char* string) = 0;
    virtual void clear();
    virtual int equals(ASN1CTime& other);
    virtual bool operator==(ASN1CTime& other);
    virtual bool operator!=(ASN1CTime& other);
    virtual bool operator>(ASN1CTime& other);
    virtual bool operator<(ASN1CTime& other);
    virtual bool operator>=(ASN1CTime& other);
    virtual bool operator<=(ASN1CTime& other);
    virtual int compileString() = 0;

    /* True when day or month is under 1, or when the day exists in that month. */
    static bool checkDate(int day, int month, int year);
    /* The caller's variable now points at the text: the own buffer when the caller gave
     * less than 30 octets of room. */
    void checkCapacity();
    const char* const* getTimeStringPtr();
    int getTimeStringLen();
    char* getTimeString(char* buf, int bufSize);
    long getDaysNum();
    long long getMillisNum();
    /* Calendar arithmetic on a set of fields, proleptic Gregorian. */
    static void addMilliseconds(long long msecs, int& year, int& month, int& day, int& hour,
                                int& minute, int& second, int& fraction);
    static void addDays(long days, int& year, int& month, int& day);
    /* Copies the other's fields and text into this object's storage. */
    ASN1CTime& operator=(const ASN1CTime& original);

protected:
    void privateInit();
    /* Parses the current text unless the fields are already valid. */
    int ensureParsed();
    /* A status through the error block when there is a context, bare otherwise. */
    int fail(int status);
    /* One field set, the text rebuilt; kBadTime through fail() when not valid. */
    int setField(ASN1SINT* field, int value, bool valid);
    /* Where rebuilt text goes and how much of it fits. */
    char* textStorage(int& capacity);
    const char* currentText() const { return timeStr ? *timeStr : 0; }
    void setUnset();

    ASN1SINT year, month, day, hour, minute, second, diffHour, diffMinute;
    ASN1INT fraction;
    ASN1UINT8 utc;
    ASN1UINT8 parsed;
    ASN1UINT8 derRules;
    char** timeStr;
    ASN1INT timeStrSize;
    char timeStrBuf[36];
    char* timeStrOwn;
};

class ASN1RT_API ASN1CGeneralizedTime : public ASN1CTime {
public:
    ASN1CGeneralizedTime(ASN1MessageBufferIF& msgBuf, char*& buf, int bufSize,
                         unsigned char useDerRules = 0);
    ASN1CGeneralizedTime(ASN1MessageBufferIF& msgBuf, const char*& buf,
                         unsigned char useDerRules = 0);
    ASN1CGeneralizedTime(ASN1Context& ctxt, char*& buf, int bufSize,
                         unsigned char useDerRules = 0);
    ASN1CGeneralizedTime(ASN1Context& ctxt, const char*& buf, unsigned char useDerRules = 0);
    ASN1CGeneralizedTime(char*& buf, int bufSize, unsigned char useDerRules = 0);
    ASN1CGeneralizedTime(const char*& buf, unsigned char useDerRules = 0);
    ASN1CGeneralizedTime(const ASN1CGeneralizedTime& original) : ASN1CTime(original) {}
    virtual ~ASN1CGeneralizedTime();

    virtual int setTime(long time, unsigned char diffTime);
    virtual int parseString(const char* string);
    virtual int compileString();

    int getCentury();
    int setCentury(int century);
    ASN1CGeneralizedTime& operator=(const ASN1CGeneralizedTime& original) {
        ASN1CTime::operator=(original);
        return *this;
    }
};

class ASN1RT_API ASN1CUTCTime : public ASN1CTime {
public:
    ASN1CUTCTime(ASN1MessageBufferIF& msgBuf, char*& buf, int bufSize,
                 unsigned char useDerRules = 0);
    ASN1CUTCTime(ASN1MessageBufferIF& msgBuf, const char*& buf, unsigned char useDerRules = 0);
    ASN1CUTCTime(ASN1Context& ctxt, char*& buf, int bufSize, unsigned char useDerRules = 0);
    ASN1CUTCTime(ASN1Context& ctxt, const char*& buf, unsigned char useDerRules = 0);
    ASN1CUTCTime(char*& buf, int bufSize, unsigned char useDerRules = 0);
    ASN1CUTCTime(const char*& buf, unsigned char useDerRules = 0);
    ASN1CUTCTime(const ASN1CUTCTime& original) : ASN1CTime(original) {}
    virtual ~ASN1CUTCTime();

    virtual int getFraction();
    virtual int setUTC(unsigned char utc);
    virtual int setYear(int year);
    virtual int setFraction(int fraction);
    virtual int setTime(long time, unsigned char diffTime);
    virtual int parseString(const char* string);
    virtual void clear();
    virtual int compileString();

    ASN1CUTCTime& operator=(const ASN1CUTCTime& original) {
        ASN1CTime::operator=(original);
        return *this;
    }

private:
    void utcInit();
};

#endif /* __cplusplus */

#endif /* ASN1RT_ASN1TIME_H */
