<?xml version="1.0" encoding="UTF-8"?>
<!-- A MARC 21 record (MARCXML as Zebra stores it) as a catalogue card: the
     same parts and order as the gateway's card presentation, so that both
     servers render comparable pages: the record number and call number, the
     main entry, title and responsibility, edition and publication joined by
     a full stop and a dash, the physical description with the series in
     parentheses, ISBN, notes, the numbered subjects and the added entries in
     Roman numerals, then the copies. -->
<xsl:stylesheet version="1.0"
    xmlns:xsl="http://www.w3.org/1999/XSL/Transform"
    xmlns:m="http://www.loc.gov/MARC21/slim"
    exclude-result-prefixes="m">
  <xsl:output method="xml" encoding="UTF-8" indent="no" omit-xml-declaration="yes"/>

  <xsl:template match="/">
    <xsl:apply-templates select="m:record"/>
  </xsl:template>

  <!-- The subfields of a field joined by blanks. -->
  <xsl:template name="texto">
    <xsl:param name="campo"/>
    <xsl:for-each select="$campo/m:subfield">
      <xsl:if test="position() &gt; 1"><xsl:text> </xsl:text></xsl:if>
      <xsl:value-of select="."/>
    </xsl:for-each>
  </xsl:template>

  <!-- A text with its final full stop, never two. -->
  <xsl:template name="punto">
    <xsl:param name="t"/>
    <xsl:variable name="n" select="normalize-space($t)"/>
    <xsl:choose>
      <xsl:when test="substring($n, string-length($n)) = '.'"><xsl:value-of select="$n"/></xsl:when>
      <xsl:otherwise><xsl:value-of select="concat($n, '.')"/></xsl:otherwise>
    </xsl:choose>
  </xsl:template>

  <xsl:template match="m:record">
    <xsl:variable name="clas" select="(m:datafield[@tag='050' or @tag='082' or @tag='090'])[1]"/>
    <div class="ficha">
      <table width="100%" bgcolor="#ccffcc"><tr>
        <td>Ficha No. <font color="red"><b><xsl:value-of select="m:controlfield[@tag='001']"/></b></font></td>
        <td align="right"><xsl:call-template name="texto"><xsl:with-param name="campo" select="$clas"/></xsl:call-template></td>
      </tr></table>
      <xsl:for-each select="(m:datafield[@tag='100' or @tag='110' or @tag='111' or @tag='130'])[1]">
        <div class="asiento">
          <xsl:call-template name="punto">
            <xsl:with-param name="t"><xsl:call-template name="texto"><xsl:with-param name="campo" select="."/></xsl:call-template></xsl:with-param>
          </xsl:call-template>
        </div>
      </xsl:for-each>
      <div class="titulo">
        <xsl:variable name="area">
          <xsl:for-each select="m:datafield[@tag='245' or @tag='250' or @tag='260']">
            <xsl:if test="position() &gt; 1"><xsl:text>. -- </xsl:text></xsl:if>
            <xsl:variable name="t"><xsl:call-template name="texto"><xsl:with-param name="campo" select="."/></xsl:call-template></xsl:variable>
            <xsl:variable name="n" select="normalize-space($t)"/>
            <xsl:choose>
              <xsl:when test="substring($n, string-length($n)) = '.'"><xsl:value-of select="substring($n, 1, string-length($n) - 1)"/></xsl:when>
              <xsl:otherwise><xsl:value-of select="$n"/></xsl:otherwise>
            </xsl:choose>
          </xsl:for-each>
        </xsl:variable>
        <xsl:call-template name="punto"><xsl:with-param name="t" select="$area"/></xsl:call-template>
      </div>
      <div class="descripcion">
        <xsl:call-template name="texto"><xsl:with-param name="campo" select="m:datafield[@tag='300'][1]"/></xsl:call-template>
        <xsl:for-each select="(m:datafield[@tag='440' or @tag='490'])[1]">
          <xsl:text> -- (</xsl:text>
          <xsl:call-template name="texto"><xsl:with-param name="campo" select="."/></xsl:call-template>
          <xsl:text>)</xsl:text>
        </xsl:for-each>
      </div>
      <xsl:for-each select="m:datafield[@tag='020'][1]">
        <div class="isbn">ISBN <xsl:value-of select="m:subfield[@code='a']"/></div>
      </xsl:for-each>
      <xsl:for-each select="m:datafield[@tag &gt;= 500 and @tag &lt;= 505] | m:datafield[@tag='520']">
        <div class="nota"><xsl:call-template name="texto"><xsl:with-param name="campo" select="."/></xsl:call-template></div>
      </xsl:for-each>
      <div class="temas">
        <xsl:for-each select="m:datafield[@tag='600' or @tag='610' or @tag='611' or @tag='630' or @tag='651' or @tag='650']">
          <xsl:if test="position() &gt; 1"><xsl:text> </xsl:text></xsl:if>
          <xsl:value-of select="position()"/><xsl:text>. </xsl:text>
          <xsl:for-each select="m:subfield">
            <xsl:if test="position() &gt; 1"><xsl:text> -- </xsl:text></xsl:if>
            <xsl:value-of select="."/>
          </xsl:for-each>
          <xsl:text>.</xsl:text>
        </xsl:for-each>
        <xsl:for-each select="m:datafield[@tag='700' or @tag='710' or @tag='711' or @tag='730']">
          <xsl:text> </xsl:text>
          <xsl:number value="position()" format="I"/><xsl:text>. </xsl:text>
          <xsl:call-template name="texto"><xsl:with-param name="campo" select="."/></xsl:call-template>
        </xsl:for-each>
      </div>
      <table class="existencias">
        <xsl:for-each select="m:datafield[@tag='852']">
          <tr><td><xsl:value-of select="m:subfield[@code='p']"/></td>
              <td><xsl:value-of select="m:subfield[@code='a']"/></td>
              <td><xsl:value-of select="m:subfield[@code='h']"/></td></tr>
        </xsl:for-each>
      </table>
    </div>
  </xsl:template>
</xsl:stylesheet>
