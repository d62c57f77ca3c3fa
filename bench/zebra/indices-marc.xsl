<?xml version="1.0" encoding="UTF-8"?>
<!-- What Zebra indexes of a MARC 21 record in bench/side-by-side: the
     fields that orvex-catalogo puts in the Orvex word index, as words,
     positional, in four registers. The benchmark's free-word queries go to
     "any", a title word to "title".
       title    130, 240, 245, 246, 440, 490
       author   100, 110, 111, 700, 710, 711
       subject  600, 610, 611, 630, 650, 651
       any      those, and 020, 022 (ISBN, ISSN), 050, 082, 090 (call
                numbers), 260 (publication) and the notes 500 to 520
     Edition (250), physical description (300) and holdings (852) are not
     indexed, as in the Orvex catalogue.
     Zebra numbers the words of a record on from one field to the next, so a
     phrase would match across two fields ("... historia de." in a note,
     "México" in the subject after it); each field therefore ends with the
     word "zzfincampozz", which no query asks for, as Orvex leaves a gap of
     positions between fields. -->
<xsl:stylesheet version="1.0"
    xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
    xmlns:m="http://www.loc.gov/MARC21/slim"
    xmlns:z="http://indexdata.com/zebra-2.0">
  <xsl:output method="xml" encoding="UTF-8" indent="no"/>

  <xsl:template match="/">
    <z:record>
      <xsl:apply-templates select="m:record/m:datafield"/>
    </z:record>
  </xsl:template>

  <xsl:template match="m:datafield">
    <xsl:variable name="tag" select="number(@tag)"/>
    <xsl:variable name="titulo" select="$tag = 130 or $tag = 240 or $tag = 245 or
                                        $tag = 246 or $tag = 440 or $tag = 490"/>
    <xsl:variable name="autor" select="$tag = 100 or $tag = 110 or $tag = 111 or
                                       $tag = 700 or $tag = 710 or $tag = 711"/>
    <xsl:variable name="tema" select="$tag = 600 or $tag = 610 or $tag = 611 or
                                      $tag = 630 or $tag = 650 or $tag = 651"/>
    <xsl:variable name="otro" select="$tag = 20 or $tag = 22 or $tag = 50 or $tag = 82 or
                                      $tag = 90 or $tag = 260 or
                                      ($tag &gt;= 500 and $tag &lt;= 520)"/>
    <xsl:variable name="registros">
      <xsl:if test="$titulo or $autor or $tema or $otro">any:w</xsl:if>
      <xsl:if test="$titulo"> title:w</xsl:if>
      <xsl:if test="$autor"> author:w</xsl:if>
      <xsl:if test="$tema"> subject:w</xsl:if>
    </xsl:variable>
    <xsl:if test="string($registros) != ''">
      <z:index name="{normalize-space($registros)}">
        <xsl:for-each select="m:subfield">
          <xsl:if test="position() &gt; 1"><xsl:text> </xsl:text></xsl:if>
          <xsl:value-of select="."/>
        </xsl:for-each>
        <xsl:text> zzfincampozz</xsl:text>
      </z:index>
    </xsl:if>
  </xsl:template>
</xsl:stylesheet>
